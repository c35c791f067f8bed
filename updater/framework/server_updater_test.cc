#include "updater/framework/server_updater.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "db-util/query.h"
#include "logger/recording_sink.h"
#include "tests/support/fake_platform.h"
#include "updater/framework/view_databases.h"

namespace {

namespace fs = std::filesystem;
using updater::DatabaseSet;
using updater::Edge;
using updater::SuccessLine;
using updater::VersionScope;

// The smallest unit: one statement of the test's choice.
class OneStep : public updater::ServerUpdater {
 public:
  OneStep(const updater::UpdaterContext& context, const Edge& edge, const updater::DatabasePaths& paths,
          std::string sql)
      : ServerUpdater(context, edge, paths), sql_(std::move(sql)) {}

  using ServerUpdater::GetParentDir;

 protected:
  std::vector<Step> Steps() override {
    return {{[this] { return db_util::ExecScript(db(), sql_); }, "failed to update databases\n"}};
  }

 private:
  std::string sql_;
};

class ServerUpdaterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = fs::path(::testing::TempDir()) / ("frame-" + std::to_string(getpid()));
    fs::remove_all(folder_);
    fs::create_directories(folder_);
    for (const std::string& path : {paths_.data, paths_.user, paths_.client}) Write(path, 3004, "master");
  }
  void TearDown() override { fs::remove_all(folder_); }

  static void Run(const std::string& path, const std::string& sql) {
    db_util::Database db;
    ASSERT_EQ(db_util::OpenDatabase(path, db), 0);
    ASSERT_EQ(db_util::ExecScript(db.get(), sql), 0);
  }
  static void Write(const std::string& path, int version, const std::string& branch) {
    Run(path,
        "CREATE TABLE IF NOT EXISTS config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR);"
        "DELETE FROM config_table; INSERT INTO config_table VALUES ('version', '" +
            std::to_string(version) + "');");
    if (!branch.empty()) Run(path, "INSERT INTO config_table VALUES ('branch', '" + branch + "');");
  }
  static std::string VersionOf(const std::string& path) {
    db_util::Database db;
    EXPECT_EQ(db_util::OpenDatabase(path, db), 0);
    std::string text;
    const auto append = [&text](sqlite3_stmt* row) {
      text += db_util::ColumnText(row, 0) + " ";
      return true;
    };
    EXPECT_TRUE(
        db_util::ForEachRow(db.get(), "SELECT value FROM config_table ORDER BY key DESC;", append).ok());
    return text;
  }
  int Update(const std::string& sql) {
    OneStep unit({scratch_, out_, fake_.platform()}, edge_, paths_, sql);
    const int result = unit.Update();
    EXPECT_FALSE(fs::exists(scratch_));
    texts_ = sink_.Texts();
    EXPECT_EQ(unit.Update(), -1) << "an updater is single-use";
    return result;
  }

  fs::path folder_ = fs::path(::testing::TempDir()) / ("frame-" + std::to_string(getpid()));
  std::string scratch_ = folder_ / "scratch";
  updater::DatabasePaths paths_ = {folder_ / "data", "", folder_ / "us'er", folder_ / "client%s"};
  Edge edge_ = {{"master", 3004},
                {"master", 3200},
                DatabaseSet::kWithoutLog,
                VersionScope::kThree,
                SuccessLine::kStandardOutput};
  std::ostringstream out_;
  std::vector<std::string> texts_;  // what the last Update() logged
  tests::FakePlatform fake_;
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(ServerUpdaterTest, WritesTheNewVersionEverywhereAndReportsIt) {
  ASSERT_EQ(Update("CREATE TABLE data_db.made (a);"), 0);
  for (const std::string& path : {paths_.data, paths_.user, paths_.client})
    EXPECT_EQ(VersionOf(path), "3200 master ");
  EXPECT_EQ(out_.str(), "Upgrade to (master, 3200)  successfully\n");
}

TEST_F(ServerUpdaterTest, RefusesVersionsThatDifferOrAreNotItsOwn) {
  Write(paths_.user, 3200, "master");
  EXPECT_EQ(Update("DROP TABLE data_db.config_table;"), -1);
  EXPECT_EQ(sink_.Count("Strato Folder Updater(N): database version mismatch: (3004, 3200, 3004)\n"), 1);
  Write(paths_.data, 3200, "master");
  Write(paths_.client, 3200, "master");
  EXPECT_EQ(Update("DROP TABLE data_db.config_table;"), -1);
  EXPECT_EQ(
      sink_.Count("Strato Folder Updater(N): failed to upgrade package: invalid branch, version = 3200\n"),
      1);
  EXPECT_EQ(VersionOf(paths_.data), "3200 master ");
}

TEST_F(ServerUpdaterTest, OneDatabaseWithoutABranchMakesAllBranchesEmpty) {
  Write(paths_.data, 2577, "");
  Write(paths_.user, 2577, "");
  Write(paths_.client, 2577, "master");
  edge_.from = {"", 2577};
  EXPECT_EQ(Update("SELECT 1;"), 0);
}

TEST_F(ServerUpdaterTest, FailsWithoutAVersionRowOrADatabase) {
  Run(paths_.client, "DELETE FROM config_table;");
  EXPECT_EQ(Update("SELECT 1;"), -1);
  EXPECT_TRUE(texts_.front().ends_with(" );): no more rows available (101)\n")) << texts_.front();
  EXPECT_EQ(texts_.back(), "Strato Folder Updater(N): failed to get database versions\n");
  paths_.client = folder_ / "none" / "client";
  sink_.Clear();
  EXPECT_EQ(Update("SELECT 1;"), -1);
  ASSERT_EQ(texts_.size(), 4U);  // the ATTACH, its line, the connection's, and the failed DETACH
  EXPECT_EQ(texts_[1], "Strato Folder Updater(N): failed to attach database\n");
  EXPECT_EQ(texts_[2], "Strato Folder Updater(N): failed to connect to databases\n");
}

TEST_F(ServerUpdaterTest, AStepThatFailsKeepsTheOldVersion) {
  EXPECT_EQ(Update("BEGIN TRANSACTION; CREATE TABLE data_db.made (a); DROP TABLE missing; END TRANSACTION;"),
            -1);
  EXPECT_EQ(sink_.Count("Strato Folder Updater(N): failed to update databases\n"), 1);
  EXPECT_EQ(VersionOf(paths_.data), "3004 master ");
  Run(paths_.data, "CREATE TABLE made (a);");  // rolled back: there is none yet
}

TEST_F(ServerUpdaterTest, UnqualifiedNamesNeverMeetAPlantedScratchDatabase) {
  Run(scratch_, "CREATE TABLE user_table (view_id); INSERT INTO user_table VALUES (99);");
  Run(paths_.user, "CREATE TABLE user_table (view_id); INSERT INTO user_table VALUES (1), (2);");
  EXPECT_EQ(Update("DELETE FROM user_table WHERE view_id = 1;"), 0);
  db_util::Database db;
  int left = 0;
  ASSERT_EQ(db_util::OpenDatabase(paths_.user, db), 0);
  ASSERT_TRUE(db_util::QueryInt(db.get(), "SELECT count(*) FROM user_table;", left).ok());
  EXPECT_EQ(left, 1);
}

TEST_F(ServerUpdaterTest, ADatabaseMadeByAttachGetsTheOwnerAndModeOfTheDataDatabase) {
  fs::permissions(paths_.data, fs::perms::owner_read | fs::perms::owner_write);
  paths_.log = folder_ / "log";
  edge_.databases = DatabaseSet::kWithLog;
  ASSERT_EQ(Update("CREATE TABLE log_db.made (a);"), 0) << ::testing::PrintToString(texts_);
  EXPECT_EQ(fs::status(paths_.log).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(ServerUpdaterTest, GetParentDirOfANameIsEmptyAndLogged) {
  EXPECT_EQ(OneStep::GetParentDir("/a/b"), "/a");
  EXPECT_EQ(OneStep::GetParentDir("name"), "");
  EXPECT_EQ(sink_.Texts(), (std::vector<std::string>{"Strato Folder Updater(N): invalid path name\n"}));
}

}  // namespace
