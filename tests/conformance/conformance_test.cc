// What every updater must do, asked of all of them.
#include <array>
#include <fstream>

#include "tests/conformance/package_test.h"

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

std::string UpdaterLine(const std::string& text) { return "Strato Folder Updater(N): " + text; }

std::string SetConfig(const std::string& key, const std::string& value) {
  return "INSERT OR REPLACE INTO config_table (key, value) VALUES ('" + key + "', '" + value + "');";
}

struct Content {
  Edge edge;
  std::string extra;
};

std::vector<Content> Contents() {
  std::vector<Content> contents;
  for (const Edge& edge : kEdges) {
    for (const Extra& extra : kExtras) {
      if (extra.from <= edge.from) contents.push_back({edge, extra.name});
    }
  }
  return contents;
}

class UpdaterContent : public PackageTest, public ::testing::WithParamInterface<Content> {};

TEST_P(UpdaterContent, BecomesThatOfTheNextVersionOnce) {
  const auto& [edge, extra] = GetParam();
  WriteFixture(edge.from, extra);
  std::ofstream(scratch_) << "left by a killed run";
  const std::unique_ptr<updater::AbstractUpdater> updater = UpdaterOf(edge.from, edge.to);

  ASSERT_EQ(updater->Update(), 0) << ::testing::PrintToString(sink_.Texts());
  const Dumps expected = DumpFixture(edge.to, extra);
  EXPECT_TRUE(SamePackage(expected, DumpPackage(package_)));
  EXPECT_FALSE(std::filesystem::exists(scratch_));
  const std::string version = updater::ToString(VersionOf(edge.to));
  if (edge.to <= 3450) {
    EXPECT_EQ(out_.str(), "Upgrade to " + version + " successfully\n");
    EXPECT_EQ(sink_.Texts(), std::vector<std::string>{});
  } else {
    EXPECT_EQ(out_.str(), "");
    EXPECT_EQ(sink_.Texts(),
              std::vector<std::string>{UpdaterLine("Upgrade to '" + version + "' successfully\n")});
  }

  EXPECT_EQ(updater->Update(), -1) << "an updater is single-use";
  EXPECT_TRUE(SamePackage(expected, DumpPackage(package_)));
}

INSTANTIATE_TEST_SUITE_P(All, UpdaterContent, ::testing::ValuesIn(Contents()), [](const auto& test) {
  return NameOf(test.param.edge) + LabelOf(test.param.extra);
});

class EveryUpdater : public PackageTest, public ::testing::WithParamInterface<Edge> {
 protected:
  // The maintenance of 3200 to 3300 runs after failures too; on a database that is analysed already it
  // changes no content.
  void WriteAnalysedFixture() {
    WriteFixture(GetParam().from);
    if (GetParam().from == 3200) RunSql(package_.data, "ANALYZE;");
  }

  // Fails with exactly these lines, and nothing that was there before has changed.
  void ExpectRefusal(const std::vector<std::string>& lines) {
    const Dumps before = DumpPackage(package_);
    std::map<std::string, std::string> files = ReadTree(folder_);
    if (GetParam().from == 3200) files.erase("package/sync/data.sqlite");
    EXPECT_EQ(UpdaterOf(GetParam().from, GetParam().to)->Update(), -1);
    EXPECT_EQ(sink_.Texts(), lines);
    EXPECT_EQ(out_.str(), "");
    const std::map<std::string, std::string> files_after = ReadTree(folder_);
    for (const auto& [path, bytes] : files) {
      EXPECT_TRUE(files_after.contains(path) && files_after.at(path) == bytes) << path;
    }
    EXPECT_FALSE(std::filesystem::exists(scratch_));
    EXPECT_TRUE(SamePackage({{"data", before.at("data")}}, {{"data", DumpDatabase(package_.data)}}));
  }
};

TEST_P(EveryUpdater, RefusesAnotherNumberOrBranch) {
  const std::string from = std::to_string(GetParam().from);
  for (const auto& [sql, number] : {std::pair{SetConfig("version", "9999"), std::string("9999")},
                                    std::pair{SetConfig("branch", "other"), from}}) {
    SCOPED_TRACE(sql);
    StartAnew();
    WriteAnalysedFixture();
    for (const std::string& path : {package_.data, package_.user, package_.client}) RunSql(path, sql);
    ExpectRefusal({UpdaterLine("failed to upgrade package: invalid branch, version = " + number + "\n")});
  }
}

TEST_P(EveryUpdater, RefusesDatabasesOfDifferentVersions) {
  const std::string from = std::to_string(GetParam().from);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {package_.data, "9999, " + from + ", " + from},
      {package_.user, from + ", 9999, " + from},
      {package_.client, from + ", " + from + ", 9999"}};
  for (const auto& [path, numbers] : cases) {
    SCOPED_TRACE(path);
    StartAnew();
    WriteAnalysedFixture();
    RunSql(path, SetConfig("version", "9999"));
    ExpectRefusal({UpdaterLine("database version mismatch: (" + numbers + ")\n")});
  }
}

TEST_P(EveryUpdater, WritesTheVersionsOfTheSharedDatabasesTogetherOrNotAtAll) {
  WriteFixture(GetParam().from);
  RunSql(package_.client, "CREATE TRIGGER refuse BEFORE UPDATE ON config_table WHEN NEW.value = '" +
                              std::to_string(GetParam().to) + "' BEGIN SELECT RAISE(ABORT, 'refused'); END;");
  EXPECT_EQ(UpdaterOf(GetParam().from, GetParam().to)->Update(), -1);
  EXPECT_EQ(sink_.Count(UpdaterLine("failed to update database versions\n")), 1);
  EXPECT_EQ(out_.str(), "");
  for (const std::string& path : {package_.data, package_.user, package_.client}) {
    EXPECT_EQ(VersionIn(path), VersionOf(GetParam().from)) << path;
  }
}

INSTANTIATE_TEST_SUITE_P(All, EveryUpdater, ::testing::ValuesIn(kEdges),
                         [](const auto& test) { return NameOf(test.param); });

// A statement in the middle of an updater that fails.
struct Obstacle {
  Edge edge;
  const char* database;  // where it is put, by its name in the dumps
  const char* sql;
  const char* step_line;
  std::vector<std::string> unchanged;
};

class UpdaterObstacle : public PackageTest, public ::testing::WithParamInterface<Obstacle> {
 protected:
  std::string PathOf(const std::string& database) const {
    if (database == "data") return package_.data;
    if (database == "user") return package_.user;
    if (database == "client") return package_.client;
    return package_.sync_folder + "/" + database + "/view-db.sqlite";
  }
};

TEST_P(UpdaterObstacle, EndsItWithItsTransactionUndone) {
  const Obstacle& obstacle = GetParam();
  WriteFixture(obstacle.edge.from);
  RunSql(PathOf(obstacle.database), obstacle.sql);
  if (obstacle.edge.from == 3200) RunSql(package_.data, "ANALYZE;");
  const Dumps before = DumpPackage(package_);

  EXPECT_EQ(UpdaterOf(obstacle.edge.from, obstacle.edge.to)->Update(), -1);
  EXPECT_EQ(sink_.Count(UpdaterLine(obstacle.step_line)), 1) << ::testing::PrintToString(sink_.Texts());
  EXPECT_EQ(out_.str(), "");
  EXPECT_FALSE(std::filesystem::exists(scratch_));
  EXPECT_EQ(VersionIn(package_.data), VersionOf(obstacle.edge.from));
  const Dumps after = DumpPackage(package_);
  for (const std::string& name : obstacle.unchanged) {
    EXPECT_TRUE(SamePackage({{name, before.at(name)}}, {{name, after.at(name)}}));
  }
}

// Schemas and statements fail on what is already there, or not there any more.
std::vector<Obstacle> Obstacles() {
  const std::vector<std::string> shared = {"data", "user", "client"};
  const std::vector<std::string> all = {"data", "log", "user", "client", "view/1", "view/17"};
  const char* const databases = "failed to update databases\n";
  const char* const views = "failed to update all view db\n";
  return {
      {{2577, 3004}, "client", "ALTER TABLE node_table ADD COLUMN share_priv_hash;", databases, shared},
      {{2603, 3004}, "client", "ALTER TABLE node_table ADD COLUMN share_priv_hash;", databases, shared},
      {{2577, 2603}, "data", "ALTER TABLE version_table RENAME TO gone;", databases, shared},
      {{3004, 3200}, "data", "CREATE TABLE node_table_name_index (x);", databases, {"client"}},
      {{3200, 3300}, "data", "ALTER TABLE log_table ADD COLUMN p6;", databases, shared},
      {{3300, 3400}, "data", "ALTER TABLE tree_table RENAME TO gone;", databases, {"log", "user", "client"}},
      {{3400, 3450}, "user", "CREATE TABLE profile_apply_view_table (profile_id);", databases, all},
      {{3450, 4000},
       "user",
       "DROP TABLE customized_rotate_cnt_table;",
       "failed to update user database schema\n",
       all},
      {{4000, 4060}, "user", "DROP TABLE rotate_setting_table;", "failed to update all rotate_cnt\n", all},
      {{4060, 4100}, "view/1", "ALTER TABLE node_table ADD COLUMN v_committer_sess_id;", views, all},
      {{4100, 4150}, "view/1", "CREATE TABLE node_table_path_index_case (x);", views, all},
  };
}

INSTANTIATE_TEST_SUITE_P(All, UpdaterObstacle, ::testing::ValuesIn(Obstacles()),
                         [](const auto& test) { return NameOf(test.param.edge); });

class BtrfsUuid : public PackageTest {};

TEST_F(BtrfsUuid, InItsOldFormGetsTheNewOneEverywhere) {
  fake_.volumes.everywhere.type = platform::FileSystemType::kBtrfs;
  Fixture(3450, "03020100-0504-0706-0809-0a0b0c0d0e0f", "activity").Write(package_);
  EXPECT_EQ(UpdaterOf(3450, 4000)->Update(), 0);
  EXPECT_TRUE(SamePackage(DumpFixture(4000, "activity", "00010203-0405-0607-0809-0a0b0c0d0e0f"),
                          DumpPackage(package_)));
  EXPECT_EQ(sink_.Texts(),
            (std::vector<std::string>{UpdaterLine("Update repo path '" + package_.sync_folder + "' uuid\n"),
                                      UpdaterLine("Upgrade to '(master, 4000) ' successfully\n")}));
}

}  // namespace
}  // namespace tests
