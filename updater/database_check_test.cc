#include "updater/database_check.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "db-util/database.h"
#include "db-util/query.h"
#include "db/manager.h"
#include "logger/recording_sink.h"
#include "tests/support/fake_platform.h"
#include "user-mgr/user_manager.h"

namespace {

namespace fs = std::filesystem;

// A volume whose recorded uuid is that of the fake platform.
class DatabaseCheckTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(root_);
    fs::create_directories(run_.sync_folder);
    fs::create_directories(fs::path(system_.user_lock).parent_path());
    Run(run_.data_db,
        "CREATE TABLE config_table (key, value); INSERT INTO config_table VALUES ('version', 4150);"
        "CREATE TABLE volume_table (uuid VARCHAR PRIMARY KEY, repo_path VARCHAR);");
    RecordVolume(fake_.volumes.everywhere.ext_uuid, run_.sync_folder);
    user_mgr::UserManager::Configure(fake_.platform(), system_.user_lock);
    ASSERT_EQ(user_mgr::UserManager::Initialize(run_.user_db), 0);
    user_mgr::UserManager::Destroy();
    AddUser("alice", 5, 1001);
    AddUser("bob", 6, 1002);
    fake_.accounts.Add("alice", 1001);
    fake_.accounts.Add("bob", 1002);
  }
  void TearDown() override {
    db::Manager::Destroy(false);
    user_mgr::UserManager::Destroy();
    fs::remove_all(root_);
  }

  static void Run(const std::string& path, const std::string& sql) {
    db_util::Database db;
    ASSERT_EQ(db_util::OpenDatabase(path, db), 0);
    ASSERT_EQ(db_util::ExecScript(db.get(), sql), 0);
  }
  static int Count(const std::string& path, const std::string& table) {
    db_util::Database db;
    int count = -1;
    EXPECT_EQ(db_util::OpenDatabase(path, db), 0);
    EXPECT_TRUE(db_util::QueryInt(db.get(), "SELECT count(*) FROM " + table + ";", count).ok());
    return count;
  }
  void RecordVolume(const std::string& uuid, const std::string& path) {
    std::string sql;
    ASSERT_TRUE(db_util::FormatSql(sql, "INSERT INTO volume_table VALUES (%Q, %Q);", uuid, path));
    Run(run_.data_db, sql);
  }
  std::string ViewDb(int view) const {
    return run_.view_folder + "/" + std::to_string(view) + "/view-db.sqlite";
  }
  void AddUser(const std::string& name, int view, int uid) {
    std::string sql;
    ASSERT_TRUE(db_util::FormatSql(
        sql,
        "INSERT INTO user_table (attribute, view_id, name, uid, gid, user_type, watch_path)"
        " VALUES (0, %d, %Q, %d, 100, 0, '');",
        view, name, uid));
    Run(run_.user_db, sql);
    fs::create_directories(fs::path(ViewDb(view)).parent_path());
    Run(ViewDb(view),
        "CREATE TABLE config_table (key, value); INSERT INTO config_table VALUES ('version', 4150);"
        "CREATE TABLE node_table (node_id INTEGER PRIMARY KEY, ver_cnt, v_file_uuid, v_mac_attr,"
        " node_delta_file_uuid, node_delta_file_id);"
        "CREATE TABLE version_table (ver_id INTEGER PRIMARY KEY, node_id, file_uuid, file_id, mac_attr);"
        "CREATE TABLE tree_table (node_id, parent_id, distance); CREATE TABLE remove_file_table (uuid, file_id);"
        "INSERT INTO node_table VALUES (1, 1, 'gone', NULL, NULL, 0), (2, 1, 'kept', NULL, NULL, 0);"
        "INSERT INTO version_table VALUES (1, 1, 'gone', 1, NULL), (2, 2, 'kept', 2, NULL);");
  }
  int Check() { return updater::DatabaseCheck(system_, fake_.platform()).Run(run_); }
  bool Logged(const std::string& line, int times = 1) const { return sink_.Count(line) == times; }

  std::string root_ = fs::path(::testing::TempDir()) / ("check-" + std::to_string(getpid()));
  platform::SystemPaths system_ = platform::SystemPaths::Under(root_);
  updater::RunPaths run_{root_ + "/volume1"};
  tests::FakePlatform fake_;
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(DatabaseCheckTest, NothingChangedDeletesNothing) {
  EXPECT_EQ(Check(), 0);
  EXPECT_EQ(Count(run_.user_db, "user_table"), 2);
  EXPECT_EQ(Count(run_.data_db, "volume_table"), 1);
  EXPECT_EQ(Count(ViewDb(5), "node_table"), 2);
}

TEST_F(DatabaseCheckTest, AUserWhoIsGoneLosesTheView) {
  fake_.accounts.accounts.erase(1001);
  EXPECT_EQ(Check(), 0);
  EXPECT_FALSE(fs::exists(run_.view_folder + "/5"));
  EXPECT_TRUE(fs::exists(ViewDb(6)));
}

TEST_F(DatabaseCheckTest, AUserWhoCannotBeAskedForFailsTheCheckAndKeepsTheView) {
  fake_.accounts.failing.insert(1001);
  EXPECT_EQ(Check(), -1);
  EXPECT_TRUE(Logged("Failed to do initial self check on user database\n"));
  EXPECT_TRUE(fs::exists(ViewDb(5)));
  EXPECT_EQ(Count(run_.user_db, "user_table"), 2) << "the databases were closed, so nothing is locked";
}

TEST_F(DatabaseCheckTest, VolumesThatAreGoneOrNewLoseTheirRecordsInEveryView) {
  const std::string old_path = root_ + "/volume2/it's";
  RecordVolume("gone", old_path);
  RecordVolume("replaced", run_.volume);
  fake_.volumes.gone.insert(old_path);
  EXPECT_EQ(Check(), 0);
  EXPECT_TRUE(Logged("uuid changed for " + old_path + " (gone -> )!"));
  EXPECT_TRUE(Logged("uuid changed for " + run_.volume + " (replaced -> " +
                     fake_.volumes.everywhere.ext_uuid + ")!"));
  EXPECT_TRUE(Logged("Delete uuid gone from Stratofolder DB\n"));
  for (const int view : {5, 6}) EXPECT_EQ(Count(ViewDb(view), "node_table WHERE v_file_uuid = 'kept'"), 1);
  for (const int view : {5, 6}) EXPECT_EQ(Count(ViewDb(view), "version_table"), 1);
  EXPECT_EQ(Count(run_.data_db, "volume_table"), 1);
}

TEST_F(DatabaseCheckTest, AMissingViewDatabaseFailsAtOnceAndLeavesTheDatabasesOpen) {
  RecordVolume("a-gone", root_ + "/none");
  RecordVolume("b-gone", root_ + "/none");
  fake_.volumes.gone.insert(root_ + "/none");
  fs::remove(ViewDb(6));
  EXPECT_EQ(Check(), -1);
  EXPECT_TRUE(Logged("Failed to open view db with view_id 6\n"));
  EXPECT_EQ(Count(run_.data_db, "volume_table"), 3) << "uuids not handled yet stay recorded";
  std::map<std::string, std::string> volumes;
  EXPECT_EQ(db::Manager::EnumVolumeTable(volumes), 0) << "still open";
  user_mgr::UserList users;
  EXPECT_EQ(user_mgr::UserManager::EnumAllUser(users), 0) << "still open";
}

TEST_F(DatabaseCheckTest, SaysWhichDatabaseCannotBeOpened) {
  std::ofstream(run_.user_db) << std::string(2000, 'x');
  EXPECT_EQ(Check(), -1);
  EXPECT_TRUE(Logged("Failed to initialize sync folder user database\n"));
  std::ofstream(run_.data_db) << std::string(2000, 'x');
  EXPECT_EQ(Check(), -1);
  EXPECT_TRUE(Logged("Failed to initialize sync folder data database\n"));
}

}  // namespace
