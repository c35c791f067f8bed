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

class UpdaterTest : public PackageTest {
 protected:
  // With what 3200 to 3300 makes when it fails too: statistics, and a log database.
  void StartAnalysed(int from) {
    StartAt(from);
    if (from != 3200) return;
    RunSql(package_.data, "ANALYZE");
    RunSql(package_.log, "SELECT 1", db_util::OpenMode::kCreate);
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
  const std::string other = "INSERT OR REPLACE INTO config_table VALUES ('version', '9999')";
  const std::vector<std::string> all = {package_.data, package_.user, package_.client};
  const std::tuple<std::vector<std::string>, std::string, std::string> cases[] = {
      {all, other, invalid + "9999\n"},
      {all, "INSERT OR REPLACE INTO config_table VALUES ('branch', 'other')", invalid + from + "\n"},
      {{package_.data}, other, mismatch + "(9999, " + from + ", " + from + ")\n"},
      {{package_.user}, other, mismatch + "(" + from + ", 9999, " + from + ")\n"},
      {{package_.client}, other, mismatch + "(" + from + ", " + from + ", 9999)\n"}};
  for (const auto& [paths, sql, line] : cases) {
    SCOPED_TRACE(line);
    StartAnalysed(GetParam().from);
    for (const std::string& path : paths) RunSql(path, sql);
    const Dumps before = DumpPackage(package_);
    const std::size_t files = ReadTree(folder_).size();
    EXPECT_EQ(Update(GetParam().from, GetParam().to), -1);
    EXPECT_EQ(sink_.Texts(), std::vector<std::string>{UpdaterLine(line)});
    EXPECT_EQ(out_.str(), "");
    ExpectPackage(before);
    EXPECT_EQ(ReadTree(folder_).size(), files);
  }
}

TEST_P(EveryUpdater, WritesTheVersionsOfTheSharedDatabasesTogetherOrNotAtAll) {
  StartAt(GetParam().from);
  RunSql(package_.client, "CREATE TRIGGER refuse BEFORE UPDATE ON config_table WHEN NEW.value = '" +
                              std::to_string(GetParam().to) + "' BEGIN SELECT RAISE(ABORT, 'refused'); END;");
  EXPECT_EQ(Update(GetParam().from, GetParam().to), -1);
  EXPECT_EQ(sink_.Texts().back(), UpdaterLine("failed to update database versions\n"));
  // Before it: the statement, a short line when that is long, and the step of those that write to folders.
  EXPECT_EQ(sink_.lines().size(), GetParam().from < 3300 ? 2U : GetParam().from < 3400 ? 3U : 4U);
  EXPECT_EQ(out_.str(), "");
  for (const std::string& path : {package_.data, package_.user, package_.client}) {
    EXPECT_EQ(Config(path, "'version'"), "version=" + std::to_string(GetParam().from) + " ") << path;
  }
}

INSTANTIATE_TEST_SUITE_P(All, EveryUpdater, ::testing::ValuesIn(kEdges),
                         [](const auto& test) { return NameOf(test.param); });

TEST_F(UpdaterTest, EndsAtAnObstacleWithItsTransactionUndone) {
  // A statement in the middle of an updater fails, on what is already there or not there any more: the
  // database and the change that makes it fail, the line of the step, and what the steps before have changed.
  struct Obstacle {
    Edge edge;
    const char* database;
    const char* sql;
    std::string line;
    std::vector<std::string> changed = {};
  };
  const std::string databases = "failed to update databases";
  const std::string views = "failed to update all view db";
  const std::vector<std::string> first_views = {"view/5", "view/4294967297"};
  const std::vector<Obstacle> obstacles = {
      {{2577, 3004}, "client", "ALTER TABLE node_table ADD share_priv_hash", databases},
      {{2603, 3004}, "client", "ALTER TABLE node_table ADD share_priv_hash", databases},
      {{2577, 2603}, "data", "ALTER TABLE version_table RENAME TO gone", databases},
      {{3004, 3200}, "data", "CREATE TABLE node_table_name_index (x)", databases, {"data", "user"}},
      {{3200, 3300}, "data", "ALTER TABLE log_table ADD p6", databases, {"log"}},
      {{3300, 3400}, "data", "ALTER TABLE tree_table RENAME TO gone", databases, {"data"}},
      {{3400, 3450}, "user", "CREATE TABLE profile_apply_view_table (profile_id)", databases},
      {{3450, 4000},
       "user",
       "DROP TABLE customized_rotate_cnt_table",
       "failed to update user database schema"},
      {{4000, 4060}, "user", "DROP TABLE rotate_setting_table", "failed to update all rotate_cnt"},
      {{4060, 4100}, "view/1", "ALTER TABLE node_table ADD v_committer_sess_id", views, first_views},
      {{4100, 4150}, "view/1", "CREATE TABLE node_table_path_index_case (x)", views, first_views}};
  for (const auto& [edge, database, sql, line, changed] : obstacles) {
    SCOPED_TRACE(NameOf(edge));
    StartAnalysed(edge.from);
    RunSql(DatabasesOf(package_).at(database), sql);
    Dumps before = DumpPackage(package_);
    EXPECT_EQ(Update(edge.from, edge.to), -1);
    EXPECT_EQ(sink_.Count(UpdaterLine(line + "\n")), 1) << ::testing::PrintToString(sink_.Texts());
    EXPECT_EQ(out_.str(), "");
    EXPECT_FALSE(std::filesystem::exists(scratch_));
    EXPECT_EQ(Config(package_.data, "'version'"), "version=" + std::to_string(edge.from) + " ");
    Dumps after = DumpPackage(package_);
    for (const std::string& name : changed) before.erase(name);
    for (const auto& [name, text] : before) EXPECT_EQ(after[name], text) << name;
  }
}

TEST_F(UpdaterTest, LeavesAViewAsItWasWhenTheRenamingOfItsUuidFails) {
  uuid_ = "03020100-0504-0706-0809-0a0b0c0d0e0f";  // the old form
  StartAt(3450, "activity");
  fake_.volumes.own.type = platform::FileSystemType::kBtrfs;
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
