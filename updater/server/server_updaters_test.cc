// Leftovers, awkward content and failures of single updaters. What a whole database of one version looks like
// in the next is compared elsewhere.
#include <sys/stat.h>

#include <fstream>

#include "tests/support/package_test.h"
#include "updater/server/new_databases.h"

namespace {

namespace fs = std::filesystem;
using tests::Query;
using tests::RunSql;
using tests::UpdaterLine;

class ServerUpdatersTest : public tests::PackageTest {
 protected:
  void ExpectFailure(int from, int to, const std::vector<std::string>& texts) {
    sink_.Clear();
    EXPECT_EQ(Update(from, to), -1);
    for (const std::string& text : texts) EXPECT_THAT(sink_.Texts(), ::testing::Contains(UpdaterLine(text)));
  }
  // What a query finds in a database after an updater has run over the fixture with these changes.
  std::string Found(int from, int to, const std::vector<std::pair<std::string, std::string>>& changes,
                    const std::string& database, const std::string& query) {
    StartAt(from);
    for (const auto& [name, sql] : changes) RunSql(tests::DatabasesOf(package_).at(name), sql);
    EXPECT_EQ(Update(from, to), 0);
    return Query(tests::DatabasesOf(package_).at(database), query);
  }
  [[nodiscard]] std::string Sync(const std::string& name) const { return package_.sync_folder + "/" + name; }
};

TEST_F(ServerUpdatersTest, MarkersAreNotWrittenThroughALinkOrIntoAPipe) {
  StartAt(2577);
  std::ofstream(Sync("precious")) << "text";
  fs::create_symlink(Sync("precious"), Sync("delta/.0"));
  EXPECT_EQ(Update(2577, 3004), -1);
  EXPECT_EQ(fs::file_size(Sync("precious")), 4U);
  fs::remove(Sync("delta/.0"));
  ASSERT_EQ(mkfifo(Sync("delta/.0").c_str(), 0600), 0);
  EXPECT_EQ(Update(2577, 3004), -1) << "and does not wait for a reader";
}

TEST_F(ServerUpdatersTest, NewFilesAndFoldersBelongToTheOwnerOfTheOldOnes) {
  if (geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  StartAt(2577);
  for (const std::string& path :
       {package_.sync_folder, Sync("repo"), Sync("delta"), Sync("rm"), package_.data}) {
    ASSERT_EQ(chown(path.c_str(), 1234, 1235), 0);
  }
  ASSERT_EQ(chmod(package_.data.c_str(), 0600), 0);
  const mode_t mask = umask(0077);
  for (const auto& [from, to] : {std::pair(2577, 3004), {3004, 3200}, {3200, 3300}, {3300, 3400}}) {
    EXPECT_EQ(Update(from, to), 0);
  }
  umask(mask);
  const std::string file_db = package_.file_folder + "/" + uuid_ + "/file-db.sqlite";
  for (const std::string& path :
       {package_.data, package_.log, View("1"), file_db, Sync("repo/.0"), Sync("node_delta"),
        Sync("node_delta/.0"), Sync("view"), Sync("view/1"), Sync("view/1/sign/.0"), Sync("rm/file")}) {
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(std::pair(status.st_uid, status.st_gid), std::pair(uid_t{1234}, gid_t{1235})) << path;
    EXPECT_EQ(status.st_mode & 0777U, S_ISDIR(status.st_mode) ? 0755U : 0600U) << path;
  }
}

TEST_F(ServerUpdatersTest, NewDatabasesAreNotMadeThroughPlantedLinks) {
  StartAt(3300);
  for (const char* folder : {"outside", "view/1"}) fs::create_directories(Sync(folder));
  fs::create_symlink(Sync("outside/new"), View("1"));
  fs::create_symlink(Sync("outside"), Sync("view/2"));
  for (const updater::ViewId view : {1U, 2U}) {
    EXPECT_FALSE(updater::server::CreateViewDatabase(package_, view, package_.data));
  }
  EXPECT_TRUE(fs::is_empty(Sync("outside")));
}

TEST_F(ServerUpdatersTest, To3200KeepsFoldersThatAreThere) {
  StartAt(3004);
  fs::create_directory(Sync("node_delta"));
  for (const char* name : {"node_delta/.0", "node_delta/7"}) std::ofstream(Sync(name)) << "delta";
  ASSERT_EQ(Update(3004, 3200), 0);
  EXPECT_EQ(fs::file_size(Sync("node_delta/.0")), 0U);
  EXPECT_EQ(fs::file_size(Sync("node_delta/7")), 5U);
}

TEST_F(ServerUpdatersTest, To3200CanBeRepeatedAfterAFailedRebuild) {
  StartAt(3004);
  RunSql(package_.data,
         "UPDATE version_table SET sync_id = 12 WHERE ver_id = 2");  // two versions for one node
  ExpectFailure(3004, 3200, {"UpdateDatabases: UpdateRedundantNodeTable failed\n"});
  // The middle step commits on its own, and what is there already is no failure.
  EXPECT_EQ(Query(package_.data, "SELECT count(*) FROM log_table"), "0 ");
  EXPECT_EQ(Query(package_.user, "SELECT count(*) FROM profile_apply_table"), "0 ");
  RunSql(package_.data, "UPDATE version_table SET sync_id = 2 WHERE ver_id = 2");
  EXPECT_EQ(Update(3004, 3200), 0);
  ExpectPackage(DumpFixture(3200));
}

TEST_F(ServerUpdatersTest, TablesAreRebuiltUnderTriggersAndViewsThatNameThem) {
  StartAt(3004);
  RunSql(package_.data,
         "CREATE TRIGGER t AFTER DELETE ON version_table BEGIN "
         "UPDATE node_table SET ver_cnt = 99 WHERE node_id = OLD.node_id; END;"
         "CREATE VIEW names AS SELECT name FROM node_table;");
  ASSERT_EQ(Update(3004, 3200), 0);
  RunSql(package_.data, "DELETE FROM version_table WHERE node_id = 8;");
  EXPECT_EQ(Query(package_.data, "SELECT name FROM node_table JOIN names USING (name) WHERE ver_cnt = 99;"),
            "a;b-- ");
  StartAt(3400, "activity");
  RunSql(package_.user, "CREATE TRIGGER t AFTER DELETE ON user_table BEGIN DELETE FROM profile_table; END;");
  ASSERT_EQ(Update(3400, 3450), 0);
  RunSql(package_.user, "DELETE FROM user_table;");
  EXPECT_EQ(Query(package_.user, "SELECT name FROM profile_table;"), "");
}

TEST_F(ServerUpdatersTest, To3300OverwritesALeftoverLogDatabaseAndASettingThatIsMissingBecomesNull) {
  StartAt(3200);
  RunSql(package_.data, "DELETE FROM config_table WHERE key = 'log_del_span';");
  RunSql(package_.log,
         "CREATE TABLE config_table (key PRIMARY KEY ON CONFLICT REPLACE, value);"
         "INSERT INTO config_table VALUES ('version', 'old');",
         db_util::OpenMode::kCreate);
  ASSERT_EQ(Update(3200, 3300), 0);
  EXPECT_EQ(Query(package_.log, "SELECT value IS NULL FROM config_table WHERE key = 'log_del_span';"), "1 ");
  EXPECT_EQ(Config(package_.log, "'version'"), "version=3300 ");
}

TEST_F(ServerUpdatersTest, To3300MaintainsTheDataDatabaseAlsoAfterAFailedRunAndOnlyLogsThatItCould) {
  const std::string fill =
      "CREATE TABLE filler (a); INSERT INTO filler VALUES (zeroblob(1000000)); DELETE FROM filler;";
  for (const char* obstacle : {"", "ALTER TABLE log_table RENAME TO kept;"}) {
    StartAt(3200);
    RunSql(package_.data, fill + obstacle);
    EXPECT_EQ(Update(3200, 3300), *obstacle == '\0' ? 0 : -1);
    EXPECT_EQ(Query(package_.data, "PRAGMA freelist_count;"), "0 ");
    EXPECT_EQ(Query(package_.data, "SELECT count(*) > 0 FROM sqlite_stat1;"), "1 ");
  }
  StartAt(3200);
  // Nobody but ANALYZE looks into this table.
  RunSql(
      package_.data,
      "CREATE TABLE broken (a, b); CREATE INDEX broken_index ON broken (a); INSERT INTO broken VALUES (1, 2);"
      "PRAGMA writable_schema = ON; UPDATE sqlite_master SET rootpage = 1 WHERE name = 'broken_index';");
  EXPECT_EQ(Update(3200, 3300), 0);
  EXPECT_EQ(sink_.Texts(), (std::vector<std::string>{
                               "StratoFolder Updater: sqlite3_exec: database disk image is malformed (11)"}));
}

// The order of the rows is all that a table without a key has.
TEST_F(ServerUpdatersTest, To3400KeepsNodesUnderViewIdsBelowZeroAndTheOrderOfTheirRows) {
  StartAt(3300);
  const std::string rows = "SELECT node_id || '-' || parent_id FROM tree_table ";
  RunSql(package_.user, "UPDATE user_table SET view_id = -5 WHERE view_id = 17;");
  RunSql(package_.client, "INSERT INTO progress_table VALUES (-5, 77);");
  RunSql(
      package_.data,
      "UPDATE node_table SET view_id = -5 WHERE view_id = 1; CREATE TABLE kept AS SELECT * FROM tree_table;"
      "DELETE FROM tree_table; INSERT INTO tree_table SELECT * FROM kept ORDER BY node_id DESC;");
  const std::string tree = Query(package_.data, rows + "WHERE node_id <= 5 ORDER BY rowid;");
  for (const auto& [from, to] : {std::pair(3300, 3400), {3400, 3450}, {3450, 4000}, {4000, 4060}}) {
    ASSERT_EQ(Update(from, to), 0);
  }
  const std::string view = View("18446744073709551611");
  EXPECT_EQ(Query(view, "SELECT node_id FROM node_table ORDER BY node_id;"), "1 2 3 4 5 ");
  EXPECT_EQ(Query(view, rows + "ORDER BY rowid;"), tree);
  EXPECT_EQ(Query(package_.client, "SELECT value FROM config_table WHERE key LIKE '%611';"), "77 ");
  EXPECT_EQ(Query(package_.user, "SELECT view_id FROM rotate_setting_table;"), "-5 0 ");
}

TEST_F(ServerUpdatersTest, To3400RefusesNodesUnderWhatIsNoViewIdBeforeItWritesAnything) {
  for (const std::string stored : {"'20abc'", "20.5", "X'3230'"}) {
    for (const std::string& nodes : {std::string("6"), stored}) {
      StartAt(3300);
      RunSql(package_.user, "UPDATE user_table SET view_id = " + stored + " WHERE view_id = 5;");
      RunSql(package_.data, "UPDATE node_table SET view_id = " + nodes + " WHERE view_id = 1;");
      EXPECT_EQ(Update(3300, 3400), nodes == stored ? -1 : 0) << "harmless without nodes";
      if (nodes == stored) continue;
      EXPECT_EQ(Config(package_.user, "'view_id'"), "view_id=4294967298 ") << stored;
    }
    EXPECT_EQ(sink_.Texts(), (std::vector<std::string>{
                                 UpdaterLine("user_table row 1 ('DOM\\bob 100%') has nodes under view_id " +
                                             stored + ", which is no view id\n"),
                                 UpdaterLine("failed to update databases\n")}));
    EXPECT_FALSE(fs::exists(package_.view_folder));
  }
}

TEST_F(ServerUpdatersTest, FailedScriptsAreLoggedWholeOrNotAtAll) {
  const std::string step = "failed to update databases\n";
  const std::string rotation = "failed to update all rotate_cnt\n";
  const std::string no_log = "no such table: data_db.log_table .1.\n";
  const std::tuple<int, int, std::string, const char*, std::string> cases[] = {
      {3200, 3300, package_.data, "DROP TABLE log_table;",
       "sqlite3_exec.PRAGMA log_db.journal_mode = WAL;.*_s5_index ON log_table.s5.;INSERT .* TRANSACTION; .: " +
           no_log + "3200 to 3300, log_db .*log-db.sqlite., data_db .*r-db.sqlite.: " + no_log + step},
      {3300, 3400, package_.data, "SELECT 1;",
       "CreateViewDB: initialize view db failed\nFailed to CreateNewDataDB\nFailed to update data db\n" +
           step},
      {3400, 3450, package_.user, "DROP TABLE customized_rotate_cnt_table;",
       "sqlite3_prepare_v2.1., sql = SELECT view_id, rotate_cnt FROM user_db.customized_rotate_cnt_table; \n"
       "Failed to EnumCustomizedRotateTable\n" +
           step},
      {4000, 4060, package_.user, "ALTER TABLE user_table DROP COLUMN user_type;",
       ".*: user_type .1.\nfailed to get user type of view 5\n" + rotation},
      {4000, 4060, View("5"), "DROP TABLE config_table;",
       "sqlite3_exec.ATTACH DATABASE '.*it''s .*' AS view_db;INSERT OR IGNORE INTO view_db.config_table .key, "
       "value. VALUES \t.'rotate_policy', \t.SELECT .* WHERE view_id = 0..;DETACH DATABASE view_db;.: no such "
       "table: view_db.config_table .1.\nFailed to update rotate_cnt for view 5\nFailed to update rotate count "
       "for view 5\n" +
           rotation},
      {4100, 4150, View("5"), "DROP TABLE version_table;",
       "Failed to exec ATTACH .*_old; END;DETACH DATABASE view_db;\n4100 to 4150, view_db .*: no such table: "
       "view_db.version_table .1.\nFailed to update view db for view 5\nfailed to update all view db\n"}};
  for (const auto& [from, to, database, sql, log] : cases) {
    StartAt(from);
    fs::create_directories(Sync("new-syncfolder.sqlite-wal/planted"));
    RunSql(database, sql);
    EXPECT_EQ(Update(from, to), -1);
    std::string texts;
    for (const std::string& text : sink_.Texts()) texts += text.substr(UpdaterLine("").size());
    EXPECT_THAT(texts, ::testing::MatchesRegex(log));
    EXPECT_THAT(texts, ::testing::Not(::testing::HasSubstr(" = OFF;")));
  }
  StartAt(3200);
  std::ofstream(package_.data) << std::string(4096, 'x');
  ExpectFailure(3200, 3300, {"failed to connect to databases\n"});
  EXPECT_THAT(sink_.Texts(), ::testing::Not(::testing::Contains(::testing::HasSubstr("PRAGMA"))));
}

TEST_F(ServerUpdatersTest, AFolderWhoseNameIsNoNumberGetsItsVersionButNoRotation) {
  StartAt(3400, "shared-rotation");
  for (const char* name : {"abc", "1abc"}) fs::copy(Sync("view/1"), Sync("view/") + name);
  ASSERT_EQ(Update(3400, 3450), 0);
  for (const char* name : {"abc", "1abc"}) {
    EXPECT_EQ(Config(View(name), "'rotate_cnt','remove_repo','version'"),
              "remove_repo=0 rotate_cnt=8 version=3450 ");
  }
}

// The views of users are visited in the order 5, 4294967297, 1, 17; the last one is a share user's.
TEST_F(ServerUpdatersTest, AwkwardContent) {
  const std::string no_users = "DELETE FROM user_table";
  const std::string rotation = "SELECT * FROM rotate_setting_table";
  const std::string policy = "SELECT value FROM config_table WHERE key = 'rotate_policy'";
  // One database without a branch makes all branches empty.
  (void)Found(2577, 3004, {{"client", "INSERT INTO config_table VALUES ('branch', 'master')"}}, "data",
              "SELECT 1");
  EXPECT_EQ(Found(3004, 3200, {{"data", "INSERT INTO config_table VALUES ('log_del_cnt', '500')"}}, "data",
                  "SELECT value FROM config_table WHERE key LIKE 'log_del%' ORDER BY key"),
            "500 2592000 ");
  EXPECT_EQ(
      Found(3300, 3400, {{"user", no_users}}, "user", "SELECT * FROM config_table WHERE key = 'view_id'"),
      "view_id|1 ");
  EXPECT_TRUE(fs::is_empty(package_.view_folder));
  EXPECT_EQ(Found(3450, 4000, {{"user", no_users}}, "user", rotation), "0|8|fifo ");
  EXPECT_EQ(
      Found(3450, 4000,
            {{"user", no_users}, {"data", "UPDATE config_table SET value = '1' WHERE key = 'remove_repo'"}},
            "user", rotation),
      "0|0|fifo ");
  EXPECT_EQ(
      Found(3450, 4000, {{"user", no_users + "; INSERT INTO customized_rotate_cnt_table VALUES (0, 12)"}},
            "user", rotation),
      "0|12|fifo ");
  // The last user's view decides the shared rotation.
  EXPECT_EQ(Found(3450, 4000,
                  {{"view/5", "UPDATE config_table SET value = '3' WHERE key = 'rotate_cnt'"},
                   {"view/17", "UPDATE config_table SET value = '7' WHERE key = 'rotate_cnt'"},
                   {"view/1", "UPDATE config_table SET value = '1' WHERE key = 'remove_repo'"}},
                  "user", rotation),
            "0|0|fifo 17|7|fifo ");
  EXPECT_EQ(Found(4000, 4060, {{"user", "UPDATE rotate_setting_table SET rotate_policy = view_id"}},
                  "view/17", policy),
            "17 ");
  EXPECT_EQ(Found(4000, 4060, {{"view/5", "INSERT INTO config_table VALUES ('rotate_policy', 'kept')"}},
                  "view/5", policy),
            "kept ");
}

TEST_F(ServerUpdatersTest, FailuresAreNamed) {
  StartAt(3300);
  fake_.volumes.failing_calls = {"GetExtUuid"};
  ExpectFailure(3300, 3400, {"Cannot get home volume uuid (" + package_.sync_folder + ")\n"});
  StartAt(3400);
  fs::remove_all(package_.view_folder);
  ExpectFailure(3400, 3450, {"Failed to get views in " + package_.view_folder + " to update rotate count\n"});
  StartAt(3400);
  fs::remove_all(package_.file_folder);  // its message names the view folder
  ExpectFailure(3400, 3450,
                {"Failed to get files in folder " + package_.view_folder + "\n",
                 "failed to update database versions\n"});
  EXPECT_EQ(Config(package_.data, "'version'"), "version=3400 ");
  StartAt(3450);
  fake_.volumes.failing_calls = {"GetFileSystemType"};
  ExpectFailure(3450, 4000,
                {"Failed to check btrfs volume '" + package_.sync_folder + "'\n",
                 "Fail to get btrfs uuid history\n", "failed to update for btrfs uuid\n"});
}

}  // namespace
