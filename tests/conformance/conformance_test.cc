// What every updater must do, asked of all of them.
#include <fstream>

#include "tests/support/package_test.h"

namespace tests {
namespace {

struct Edge {
  int from;
  int to;
};
constexpr std::array kEdges = {Edge{2577, 3004}, Edge{2603, 3004}, Edge{2577, 2603}, Edge{3004, 3200},
                               Edge{3200, 3300}, Edge{3300, 3400}, Edge{3400, 3450}, Edge{3450, 4000},
                               Edge{4000, 4060}, Edge{4060, 4100}, Edge{4100, 4150}};

std::string NameOf(const Edge& edge) { return std::to_string(edge.from) + "to" + std::to_string(edge.to); }

std::string SetConfig(const std::string& key, const std::string& value) {
  return "INSERT OR REPLACE INTO config_table (key, value) VALUES ('" + key + "', '" + value + "');";
}

class UpdaterTest : public PackageTest {
 protected:
  // The maintenance of 3200 to 3300 runs after failures too; on a database that is analysed already it
  // changes no content.
  void StartAnalysed(int from) {
    StartAt(from);
    if (from == 3200) RunSql(package_.data, "ANALYZE;");
  }
};

class EveryUpdater : public UpdaterTest, public ::testing::WithParamInterface<Edge> {};

TEST_P(EveryUpdater, MakesTheContentOfTheNextVersionOnce) {
  for (const Extra& extra : kExtras) {
    if (extra.from > GetParam().from) continue;
    SCOPED_TRACE(extra.name);
    StartAt(GetParam().from, extra.name);
    const std::string leftover = package_.sync_folder + "/new-syncfolder.sqlite";
    for (const std::string& path : {scratch_, leftover, leftover + "-wal"}) {
      std::ofstream(path) << "left by a killed run";
    }
    const Dumps expected = DumpFixture(GetParam().to, extra.name);
    const std::unique_ptr<updater::AbstractUpdater> updater = UpdaterOf(GetParam().from, GetParam().to);
    EXPECT_EQ(updater->Update(), 0);
    ExpectPackage(expected);
    EXPECT_FALSE(std::filesystem::exists(scratch_));
    const std::string version = updater::ToString(VersionOf(GetParam().to));
    std::vector<std::string> lines = {UpdaterLine("Upgrade to '" + version + "' successfully\n")};
    if (GetParam().to <= 3450) lines.clear();
    EXPECT_EQ(sink_.Texts(), lines);
    EXPECT_EQ(out_.str(), lines.empty() ? "Upgrade to " + version + " successfully\n" : "");

    EXPECT_EQ(updater->Update(), -1) << "an updater is single-use";
    ExpectPackage(expected);
  }
}

TEST_P(EveryUpdater, RefusesOtherVersionsAndChangesNothing) {
  const std::string from = std::to_string(GetParam().from);
  const std::string invalid = "failed to upgrade package: invalid branch, version = ";
  const std::string mismatch = "database version mismatch: ";
  const std::string other = SetConfig("version", "9999");
  const std::vector<std::string> all = {package_.data, package_.user, package_.client};
  const std::tuple<std::vector<std::string>, std::string, std::string> cases[] = {
      {all, other, invalid + "9999\n"},
      {all, SetConfig("branch", "other"), invalid + from + "\n"},
      {{package_.data}, other, mismatch + "(9999, " + from + ", " + from + ")\n"},
      {{package_.user}, other, mismatch + "(" + from + ", 9999, " + from + ")\n"},
      {{package_.client}, other, mismatch + "(" + from + ", " + from + ", 9999)\n"}};
  for (const auto& [paths, sql, line] : cases) {
    SCOPED_TRACE(line);
    StartAnalysed(GetParam().from);
    for (const std::string& path : paths) RunSql(path, sql);
    const Dumps before = DumpPackage(package_);
    std::map<std::string, std::string> files = ReadTree(folder_);
    if (GetParam().from == 3200) files.erase("package/@sync/syncfolder-db.sqlite");
    EXPECT_EQ(Update(GetParam().from, GetParam().to), -1);
    EXPECT_EQ(sink_.Texts(), std::vector<std::string>{UpdaterLine(line)});
    EXPECT_EQ(out_.str(), "");
    EXPECT_FALSE(std::filesystem::exists(scratch_));
    const std::map<std::string, std::string> files_after = ReadTree(folder_);
    for (const auto& [path, bytes] : files) {
      EXPECT_TRUE(files_after.contains(path) && files_after.at(path) == bytes) << path;
    }
    EXPECT_EQ(DumpPackage(package_).at("data"), before.at("data"));
  }
}

TEST_P(EveryUpdater, WritesTheVersionsOfTheSharedDatabasesTogetherOrNotAtAll) {
  StartAt(GetParam().from);
  RunSql(package_.client, "CREATE TRIGGER refuse BEFORE UPDATE ON config_table WHEN NEW.value = '" +
                              std::to_string(GetParam().to) + "' BEGIN SELECT RAISE(ABORT, 'refused'); END;");
  EXPECT_EQ(Update(GetParam().from, GetParam().to), -1);
  EXPECT_EQ(sink_.Count(UpdaterLine("failed to update database versions\n")), 1);
  EXPECT_EQ(out_.str(), "");
  for (const std::string& path : {package_.data, package_.user, package_.client}) {
    EXPECT_EQ(Config(path, "'version'"), "version=" + std::to_string(GetParam().from) + " ") << path;
  }
}

INSTANTIATE_TEST_SUITE_P(All, EveryUpdater, ::testing::ValuesIn(kEdges),
                         [](const auto& test) { return NameOf(test.param); });

// A statement in the middle of an updater that fails, on what is already there or not there any more.
struct Obstacle {
  Edge edge;
  const char* database;  // where it is put, by its name in the dumps
  const char* sql;
  const char* step_line;
  std::vector<std::string> changed = {};  // by the steps before
};

TEST_F(UpdaterTest, EndsAtAnObstacleWithItsTransactionUndone) {
  const char* const databases = "failed to update databases\n";
  const char* const views = "failed to update all view db\n";
  const std::vector<Obstacle> obstacles = {
      {{2577, 3004}, "client", "ALTER TABLE node_table ADD COLUMN share_priv_hash;", databases},
      {{2603, 3004}, "client", "ALTER TABLE node_table ADD COLUMN share_priv_hash;", databases},
      {{2577, 2603}, "data", "ALTER TABLE version_table RENAME TO gone;", databases},
      {{3004, 3200}, "data", "CREATE TABLE node_table_name_index (x);", databases, {"data", "user"}},
      {{3200, 3300}, "data", "ALTER TABLE log_table ADD COLUMN p6;", databases},
      {{3300, 3400}, "data", "ALTER TABLE tree_table RENAME TO gone;", databases, {"data"}},
      {{3400, 3450}, "user", "CREATE TABLE profile_apply_view_table (profile_id);", databases},
      {{3450, 4000},
       "user",
       "DROP TABLE customized_rotate_cnt_table;",
       "failed to update user database schema\n"},
      {{4000, 4060}, "user", "DROP TABLE rotate_setting_table;", "failed to update all rotate_cnt\n"},
      {{4060, 4100},
       "view/1",
       "ALTER TABLE node_table ADD COLUMN v_committer_sess_id;",
       views,
       {"view/5", "view/4294967297"}},
      {{4100, 4150},
       "view/1",
       "CREATE TABLE node_table_path_index_case (x);",
       views,
       {"view/5", "view/4294967297"}},
  };
  for (const auto& [edge, database, sql, step_line, changed] : obstacles) {
    SCOPED_TRACE(NameOf(edge));
    StartAnalysed(edge.from);
    RunSql(DatabasesOf(package_).at(database), sql);
    Dumps before = DumpPackage(package_);

    EXPECT_EQ(Update(edge.from, edge.to), -1);
    EXPECT_EQ(sink_.Count(UpdaterLine(step_line)), 1) << ::testing::PrintToString(sink_.Texts());
    EXPECT_EQ(out_.str(), "");
    EXPECT_FALSE(std::filesystem::exists(scratch_));
    EXPECT_EQ(Config(package_.data, "'version'"), "version=" + std::to_string(edge.from) + " ");
    Dumps after = DumpPackage(package_);
    for (const std::string& name : changed) before.erase(name);
    for (const auto& [name, text] : before) EXPECT_EQ(after[name], text) << name;
  }
}

TEST_F(UpdaterTest, SaysThatADatabaseCannotBeAttached) {
  StartAt(4000);
  package_.client = folder_ / "none" / "client.sqlite";
  EXPECT_EQ(Update(4000, 4060), -1);
  EXPECT_EQ(sink_.Count(UpdaterLine("failed to attach database\n")), 1);
  EXPECT_EQ(sink_.Count(UpdaterLine("failed to connect to databases\n")), 1);
  EXPECT_FALSE(std::filesystem::exists(scratch_));
}

TEST_F(UpdaterTest, LeavesAViewAsItWasWhenTheRenamingOfItsUuidFails) {
  uuid_ = "03020100-0504-0706-0809-0a0b0c0d0e0f";  // the old form
  StartAt(3450, "activity");
  fake_.volumes.everywhere.type = platform::FileSystemType::kBtrfs;
  RunSql(View("1"),
         "CREATE TRIGGER t BEFORE UPDATE OF mac_attr ON version_table BEGIN SELECT RAISE(ABORT, 'no'); END;");
  const std::string uuids =
      "SELECT quote(v_file_uuid) || quote(v_mac_attr) || quote(node_delta_file_uuid) FROM node_table;";
  const std::string before = Query(View("1"), uuids);
  EXPECT_EQ(Update(3450, 4000), -1);
  EXPECT_EQ(Query(View("1"), uuids), before);
  EXPECT_EQ(sink_.Count(UpdaterLine("Failed to update view db (1)\n")), 1);
  EXPECT_EQ(sink_.Count(UpdaterLine("Failed to update uuid for view 1\n")), 1);
  EXPECT_TRUE(std::filesystem::exists(package_.file_folder + "/" + uuid_));
}

}  // namespace
}  // namespace tests
