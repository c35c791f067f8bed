// Failures, leftovers and awkward content of the updaters up to 3300. What a whole database of one version
// looks like in the next is compared elsewhere.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "db-util/query.h"
#include "logger/recording_sink.h"
#include "tests/support/fake_platform.h"
#include "tests/support/temporary_folder.h"
#include "updater/server/svr_updater_2577to3004.h"
#include "updater/server/svr_updater_3004to3200.h"
#include "updater/server/svr_updater_3200to3300.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kConfigTable =
    "CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');"
    "INSERT INTO config_table VALUES ('version', '2577');";
constexpr const char* kNodeTable =
    "CREATE TABLE node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id, view_id, attribute, "
    "max_id, sync_id, ver_cnt, ctime, mtime, name, path, data);"
    "INSERT INTO node_table (node_id, sync_id, name, path) VALUES (1, 6, 'a', '/a');";
constexpr const char* kVersionTable =
    "CREATE TABLE version_table (ver_id INTEGER PRIMARY KEY, node_id, attribute, sync_id, base_id, file_id, "
    "file_size, file_hash, mtime, exec_bit, uid, gid, sess_id, client_id, mac_attr);"
    "INSERT INTO version_table (node_id, sync_id, attribute, exec_bit, client_id) VALUES "
    "(1, 5, 0, 0, 'admin@StorageHost'), (1, 6, 2, 1, 'other');";

class EarlyUpdatersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const std::string& path : {data_, user_, client_}) Run(path, kConfigTable);
    Run(client_, kNodeTable);
    Run(data_, std::string(kNodeTable) + kVersionTable);
    folder_.Write("repo/.0", "old");
    fs::create_directory(folder_ / "delta");
  }

  static void Run(const std::string& path, const std::string& sql) {
    db_util::Database db;
    ASSERT_EQ(db_util::OpenDatabase(path, db), 0);
    ASSERT_EQ(db_util::ExecScript(db.get(), sql), 0);
  }
  // All rows of a query, columns separated by "|"; NULL reads "-"; a failing query reads its message.
  static std::string Rows(const std::string& path, const std::string& sql) {
    db_util::Database db;
    EXPECT_EQ(db_util::OpenDatabase(path, db, db_util::OpenMode::kReadOnly), 0);
    std::string rows;
    const db_util::QueryResult result = db_util::ForEachRow(db.get(), sql, [&rows](sqlite3_stmt* row) {
      for (int i = 0; i < sqlite3_column_count(row); ++i) {
        const bool null = sqlite3_column_type(row, i) == SQLITE_NULL;
        rows += (null ? "-" : db_util::ColumnText(row, i)) + "|";
      }
      return true;
    });
    return result.ok() ? rows : result.message;
  }
  static std::string Config(const std::string& path, const std::string& key) {
    return Rows(path, "SELECT value FROM config_table WHERE key = '" + key + "';");
  }

  int UpdateTo3004() {
    return updater::server::SvrUpdater2577to3004(context_, data_, user_, client_).Update();
  }
  int UpdateTo3200() {
    return updater::server::SvrUpdater3004to3200(context_, folder_.path(), data_, user_, client_).Update();
  }
  int UpdateTo3300() {
    return updater::server::SvrUpdater3200to3300(context_, data_, log_, user_, client_).Update();
  }
  void StartAt3004(const std::string& data_sql = "") {
    ASSERT_EQ(UpdateTo3004(), 0);
    Run(data_, data_sql);
  }
  [[nodiscard]] int Logged(const std::string& text) const {
    return sink_.Count("Strato Folder Updater(N): " + text);
  }

  const tests::TemporaryFolder folder_;
  const std::string data_ = folder_ / "data.bak";
  const std::string log_ = folder_ / "log.bak";
  const std::string user_ = folder_ / "user.bak";
  const std::string client_ = folder_ / "client.bak";
  std::ostringstream out_;
  tests::FakePlatform platform_;
  updater::UpdaterContext context_{folder_ / "scratch", out_, platform_.platform()};
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(EarlyUpdatersTest, To3004FailsBeforeAnyChangeWithoutItsFolders) {
  fs::remove(folder_ / "delta");
  EXPECT_EQ(UpdateTo3004(), -1);
  EXPECT_EQ(sink_.Texts(),
            (std::vector<std::string>{"Strato Folder Updater(N): failed to open file(" + folder_.path() +
                                          "/delta/.0): No such file or directory\n",
                                      "Strato Folder Updater(N): failed to create empty file\n",
                                      "Strato Folder Updater(N): failed to update databases\n"}));
  EXPECT_TRUE(fs::exists(folder_ / "repo/.0")) << "the marker made first stays";
  EXPECT_EQ(Rows(data_, "SELECT mode FROM version_table;"), "no such column: mode");
}

TEST_F(EarlyUpdatersTest, MarkersAreNotWrittenThroughALinkOrIntoAPipe) {
  folder_.Write("precious", "text");
  fs::create_symlink(folder_ / "precious", folder_ / "delta/.0");
  EXPECT_EQ(UpdateTo3004(), -1);
  EXPECT_EQ(fs::file_size(folder_ / "precious"), 4U);
  fs::remove(folder_ / "delta/.0");
  ASSERT_EQ(mkfifo((folder_ / "delta/.0").c_str(), 0600), 0);
  EXPECT_EQ(UpdateTo3004(), -1) << "and does not wait for a reader";
}

TEST_F(EarlyUpdatersTest, To3004CannotRunTwiceAndTheSecondRunRollsBack) {
  ASSERT_EQ(UpdateTo3004(), 0);
  EXPECT_EQ(fs::file_size(folder_ / "repo/.0"), 0U);
  EXPECT_EQ(Rows(data_, "SELECT mode, client_id FROM version_table;"), "1604|localhost|1877|other|");
  for (const std::string& path : {data_, user_, client_}) {
    Run(path,
        "UPDATE config_table SET value = 2577 WHERE key = 'version';"
        "DELETE FROM config_table WHERE key = 'branch';");
  }
  // Only the last statements fail: everything before them was done and has to go again.
  Run(data_, "DROP TABLE version_table;" + std::string(kVersionTable));
  EXPECT_EQ(UpdateTo3004(), -1);
  EXPECT_EQ(Logged("failed to update databases\n"), 1);
  EXPECT_EQ(Rows(data_, "SELECT mode FROM version_table;"), "no such column: mode");
  EXPECT_EQ(Rows(data_, "SELECT client_id FROM version_table;"), "admin@StorageHost|other|");
  EXPECT_EQ(Config(data_, "version"), "2577|");
}

TEST_F(EarlyUpdatersTest, To3200KeepsSettingsAndFoldersThatAreThere) {
  StartAt3004("INSERT INTO config_table VALUES ('log_del_cnt', '500');");
  folder_.Write("node_delta/.0", "old");
  folder_.Write("node_delta/7", "delta");
  ASSERT_EQ(UpdateTo3200(), 0);
  EXPECT_EQ(fs::file_size(folder_ / "node_delta/.0"), 0U);
  EXPECT_EQ(fs::file_size(folder_ / "node_delta/7"), 5U);
  EXPECT_EQ(Config(data_, "log_del_cnt"), "500|");
  EXPECT_EQ(Config(data_, "log_del_span"), "2592000|");
  Run(data_, "INSERT INTO node_table (name, path) VALUES ('b', '/b');");
  EXPECT_EQ(Rows(data_,
                 "SELECT node_id, abs(ctime - strftime('%s', 'now')) < 60, typeof(ctime), v_client_id "
                 "FROM node_table WHERE name = 'b' OR v_client_id = 'other';"),
            "1|-|null|other|2|1|integer|-|");
}

TEST_F(EarlyUpdatersTest, To3200GivesItsFolderToTheOwnerOfTheSyncFolder) {
  if (geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  StartAt3004();
  ASSERT_EQ(chown(folder_.path().c_str(), 1234, 1235), 0);
  ASSERT_EQ(UpdateTo3200(), 0);
  struct stat status {};
  ASSERT_EQ(stat((folder_ / "node_delta").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 1235U);
}

TEST_F(EarlyUpdatersTest, To3200CannotMakeItsFolder) {
  StartAt3004();
  folder_.Write("node_delta", "a file");
  EXPECT_EQ(UpdateTo3200(), -1);
  EXPECT_EQ(Logged("failed to create node_delta folder\n"), 1);
  EXPECT_EQ(Logged("UpdateDatabases: CreateNodeDeltaFolder failed\n"), 1);
  EXPECT_EQ(Logged("failed to update databases\n"), 1);
  fs::remove(folder_ / "node_delta");
  fs::create_directories(folder_ / "node_delta/.0");
  EXPECT_EQ(UpdateTo3200(), -1);
  EXPECT_EQ(Logged("failed to create empty file node_delta/.0\n"), 1);
  EXPECT_EQ(Rows(data_, "SELECT * FROM log_table;"), "no such table: log_table");
}

// The middle step commits on its own; the last one rolls back.
TEST_F(EarlyUpdatersTest, To3200KeepsTheLogAndProfilesWhenTheRebuildFails) {
  StartAt3004("UPDATE version_table SET sync_id = 6;");
  EXPECT_EQ(UpdateTo3200(), -1) << "two versions for one node";
  EXPECT_EQ(Logged("UpdateDatabases: UpdateRedundantNodeTable failed\n"), 1);
  EXPECT_EQ(Logged("UpdateDatabases: UpdateDatabaseSchema failed\n"), 0);
  EXPECT_EQ(Rows(data_, "SELECT count(*) FROM log_table;") + Config(data_, "node_delta_file_id"), "0|1|");
  EXPECT_EQ(Rows(user_, "SELECT count(*) FROM profile_apply_table;"), "0|");
  EXPECT_EQ(Rows(data_, "SELECT v_mode FROM node_table;"), "no such column: v_mode");
  EXPECT_EQ(Rows(data_, "SELECT * FROM new_node_table;"), "no such table: new_node_table");
  EXPECT_EQ(Config(data_, "version"), "3004|");
  Run(data_, "UPDATE version_table SET sync_id = 5 WHERE client_id = 'localhost';");
  EXPECT_EQ(UpdateTo3200(), 0) << "what is there already is no failure";
}

TEST_F(EarlyUpdatersTest, To3200RenamesUnderTriggersAndViewsThatNameTheNodeTable) {
  StartAt3004(
      "CREATE TRIGGER count_versions AFTER DELETE ON version_table BEGIN "
      "UPDATE node_table SET ver_cnt = 9 WHERE node_id = OLD.node_id; END;"
      "CREATE VIEW names AS SELECT name FROM node_table;");
  ASSERT_EQ(UpdateTo3200(), 0);
  Run(data_, "DELETE FROM version_table;");
  EXPECT_EQ(Rows(data_, "SELECT ver_cnt, name FROM node_table, names USING (name);"), "9|a|");
}

class LogUpdaterTest : public EarlyUpdatersTest {
 protected:
  // A log of the data database that takes some space, half of it free.
  void StartAt3200() {
    StartAt3004();
    ASSERT_EQ(UpdateTo3200(), 0);
    Run(data_,
        "INSERT INTO log_table (type, time, s1) VALUES (1, 10, 'it''s 100%'), (2, 20, NULL);"
        "CREATE TABLE filler (a); INSERT INTO filler VALUES (zeroblob(1000000)); DELETE FROM filler;");
    sink_.Clear();
  }
  void ExpectMaintained() const {
    EXPECT_EQ(Rows(data_, "PRAGMA freelist_count;"), "0|");
    EXPECT_EQ(Rows(data_, "SELECT count(*) > 0 FROM sqlite_stat1;"), "1|");
  }
};

TEST_F(LogUpdaterTest, To3300OverwritesALeftoverLogDatabaseAndASettingThatIsMissingBecomesNull) {
  StartAt3200();
  Run(data_, "DELETE FROM config_table WHERE key = 'log_del_span';");
  Run(log_, kConfigTable);
  ASSERT_EQ(UpdateTo3300(), 0);
  EXPECT_EQ(Config(log_, "version") + Config(log_, "log_del_span") + Config(log_, "log_del_cnt"),
            "3300|-|1000000|");
  EXPECT_EQ(Rows(log_, "SELECT type, time, s1, p5 FROM log_table;"), "1|10|it's 100%|-|2|20|-|-|");
  EXPECT_EQ(Rows(log_, "PRAGMA journal_mode;"), "wal|");
  EXPECT_EQ(Rows(data_, "SELECT key FROM config_table WHERE key LIKE '%log_del%';"), "");
  EXPECT_EQ(Rows(data_, "SELECT * FROM log_table;"), "no such table: log_table");
  ExpectMaintained();
}

TEST_F(LogUpdaterTest, To3300MaintainsTheDataDatabaseAlsoAfterAFailedRun) {
  StartAt3200();
  Run(data_, "ALTER TABLE log_table RENAME TO kept;");
  EXPECT_EQ(UpdateTo3300(), -1);
  EXPECT_EQ(Logged("failed to update databases\n"), 1);
  EXPECT_EQ(Config(data_, "version") + Config(data_, "log_del_cnt"), "3200|1000000|");
  EXPECT_EQ(Rows(log_, "SELECT count(*) FROM sqlite_master;"), "0|");
  ExpectMaintained();
}

TEST_F(LogUpdaterTest, To3300OnlyLogsThatMaintenanceFailed) {
  StartAt3200();
  // Nobody but ANALYZE looks into this table.
  Run(data_,
      "CREATE TABLE broken (a, b); CREATE INDEX broken_index ON broken (a); INSERT INTO broken VALUES (1, 2);"
      "PRAGMA writable_schema = ON; UPDATE sqlite_master SET rootpage = 1 WHERE name = 'broken_index';");
  EXPECT_EQ(UpdateTo3300(), 0);
  EXPECT_EQ(sink_.Texts(), (std::vector<std::string>{
                               "StratoFolder Updater: sqlite3_exec: database disk image is malformed (11)"}));
  EXPECT_EQ(Config(data_, "version"), "3300|");
  fs::remove_all(data_);
  fs::create_directory(data_);
  EXPECT_EQ(UpdateTo3300(), -1);
  EXPECT_EQ(sink_.Texts().back(),
            "Strato Folder Updater(N): failed to initialize database connection (" + data_ + ")");
}

}  // namespace
