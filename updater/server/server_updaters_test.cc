// Leftovers, awkward content and failures of single updaters. What a whole database of one version looks like
// in the next is compared elsewhere.
#include <regex>
#include <set>

#include "db-util/query.h"
#include "tests/support/package_test.h"
#include "updater/framework/attached_database.h"
#include "updater/server/new_databases.h"
#include "updater/server/view_rows.h"

namespace {

namespace fs = std::filesystem;
using tests::Query;
using tests::RunSql;
using tests::SchemaOf;
using tests::UpdaterLine;

class ServerUpdatersTest : public tests::PackageTest {
 protected:
  // What a query finds in a database after an updater has run over the fixture with these changes.
  std::string Found(int from, const std::vector<std::pair<std::string, std::string>>& changes,
                    const std::string& database, const std::string& query) {
    StartAt(from);
    for (const auto& [name, sql] : changes) {
      RunSql(name == "log" ? package_.log : tests::DatabasesOf(package_).at(name), sql,
             db_util::OpenMode::kCreate);
    }
    EXPECT_EQ(Update(), 0);
    return Query(tests::DatabasesOf(package_).at(database), query);
  }
  [[nodiscard]] std::string Sync(const std::string& name) const { return package_.sync_folder + "/" + name; }
};

TEST_F(ServerUpdatersTest, NewDatabasesAreNotMadeThroughPlantedLinks) {
  StartAt(3300);
  for (const char* folder : {"outside", "view/1"}) fs::create_directories(Sync(folder));
  fs::create_symlink(Sync("outside/new"), View("1"));
  fs::create_symlink(Sync("outside"), Sync("view/2"));
  for (const updater::ViewId view : {1U, 2U}) {
    EXPECT_FALSE(updater::server::CreateViewDatabase(package_, view, package_.data, "image"));
  }
  EXPECT_TRUE(fs::is_empty(Sync("outside")));
}

TEST_F(ServerUpdatersTest, TablesAreRebuiltUnderTriggersAndViewsThatNameThem) {
  StartAt(3004);
  RunSql(package_.data,
         "CREATE TRIGGER t AFTER DELETE ON version_table BEGIN "
         "UPDATE node_table SET ver_cnt = 99 WHERE node_id = OLD.node_id; END;"
         "CREATE VIEW names AS SELECT name FROM node_table;");
  ASSERT_EQ(Update(), 0);
  RunSql(package_.data, "DELETE FROM version_table WHERE node_id = 8;");
  EXPECT_EQ(Query(package_.data, "SELECT name FROM node_table JOIN names USING (name) WHERE ver_cnt = 99;"),
            "a;b-- ");
  StartAt(3400, "activity");
  RunSql(package_.user, "CREATE TRIGGER t AFTER DELETE ON user_table BEGIN DELETE FROM profile_table; END;");
  ASSERT_EQ(Update(), 0);
  RunSql(package_.user, "DELETE FROM user_table;");
  EXPECT_EQ(Query(package_.user, "SELECT name FROM profile_table;"), "");
}

TEST_F(ServerUpdatersTest, To3300MaintainsTheDataDatabaseAlsoAfterAFailedRunAndOnlyLogsThatItCould) {
  const std::string fill =
      "CREATE TABLE filler (a); INSERT INTO filler VALUES (zeroblob(1000000)); DELETE FROM filler;";
  for (const char* obstacle : {"", "ALTER TABLE log_table RENAME TO kept;"}) {
    StartAt(3200);
    RunSql(package_.data, fill + obstacle);
    EXPECT_EQ(Update(), *obstacle == '\0' ? 0 : -1);
    EXPECT_EQ(Query(package_.data, "PRAGMA freelist_count;"), "0 ");
    EXPECT_EQ(Query(package_.data, "SELECT count(*) > 0 FROM sqlite_stat1;"), "1 ");
  }
  StartAt(3200);
  // Nobody but ANALYZE looks into this table.
  RunSql(
      package_.data,
      "CREATE TABLE broken (a, b); CREATE INDEX broken_index ON broken (a); INSERT INTO broken VALUES (1, 2);"
      "PRAGMA writable_schema = ON; UPDATE sqlite_master SET rootpage = 1 WHERE name = 'broken_index';");
  EXPECT_EQ(Update(), 0);
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
  while (version_ < 4060) ASSERT_EQ(Update(), 0);
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
      EXPECT_EQ(Update(), nodes == stored ? -1 : 0) << "harmless without nodes";
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

TEST_F(ServerUpdatersTest, FailuresAreNamedAndUndoneAndFailedScriptsLoggedWholeOrNotAtAll) {
  // A statement in the middle of an updater fails, on what is already there or not there any more: what makes
  // it fail, all that is logged, and what the steps before have changed.
  struct Failure {
    int from;
    std::function<void()> prepare;
    std::string log;
    const char* changed = "none";
    int to = 0;
  };
  const std::string step = "failed to update databases\n";
  const std::string rotation = "failed to update all rotate_cnt\n";
  const std::string views = "failed to update all view db\n";
  const std::string no_uuid = "Cannot get home volume uuid ..*/@sync.\n" + step;
  const std::string no_history = "Fail to get btrfs uuid history\nfailed to update for btrfs uuid\n";
  const std::string no_log = "no such table: data_db.log_table .1.\n";
  const std::string versions = ".*refused .19.\n.*failed to update database versions\n";
  const std::string folders =
      "Failed to update version and branch to syncfolder-db, user-db, client-db and log-db";
  const std::string refuse =
      "CREATE TRIGGER t BEFORE UPDATE ON config_table BEGIN SELECT RAISE(ABORT, 'refused'); END;";
  const std::string add_column = "ALTER TABLE node_table ADD share_priv_hash";
  const auto run = [](const std::string& path, const std::string& sql) { return [=] { RunSql(path, sql); }; };
  const auto remove = [](const std::string& path) { return [path] { fs::remove_all(path); }; };
  const auto fail = [this](const char* call) {
    return [this, call] { fake_.volumes.failing_calls = {call}; };
  };
  const auto set = [this](const platform::memory::VolumeIdentity& own) {
    return [this, own] { fake_.volumes.own = own; };
  };
  const auto both = [](auto one, auto other) { return [=] { one(), other(); }; };
  const auto plant = [this] { fs::create_directories(Sync("new-syncfolder.sqlite-wal/planted")); };
  const std::vector<Failure> failures = {
      {2577, run(package_.client, add_column), ".*" + step},
      {2603, run(package_.client, add_column), ".*" + step},
      // The versions of the shared databases are written together or not at all.
      {3004, run(package_.client, refuse), versions, "data|user"},
      {4100, run(package_.client, refuse), ".*" + folders + versions.substr(versions.find("failed")),
       "view.*"},
      {4100,
       run(package_.data, "CREATE TRIGGER t BEFORE UPDATE ON config_table BEGIN SELECT RAISE(IGNORE); END;"),
       "the databases have not taken their new version: .4100, 4150, 4150.\nfailed to update database versions\n",
       "log|user|client|view.*|file.*"},
      {2577, run(package_.data, "ALTER TABLE version_table RENAME TO gone"), ".*" + step, "none", 2603},
      // Two versions for one node. The middle step commits on its own.
      {3004, run(package_.data, "UPDATE version_table SET sync_id = 12 WHERE ver_id = 2"),
       ".*UpdateDatabases: UpdateRedundantNodeTable failed\n" + step, "data|user"},
      {3200, run(package_.data, "ANALYZE; DROP TABLE log_table;"),
       "sqlite3_exec.PRAGMA log_db.journal_mode = WAL;.*_s5_index ON log_table.s5.;INSERT .* TRANSACTION; .: " +
           no_log + "3200 to 3300, log_db .*log-db.sqlite., data_db .*r-db.sqlite.: " + no_log + step},
      {3300, run(package_.data, "ALTER TABLE tree_table RENAME TO gone"), ".*" + step, "data"},
      {3300, fail("GetExtUuid"), no_uuid, "data"},
      {3300, fail("GetFileSystemType"), ".*file system property from '.*/@sync'\n" + no_uuid, "data"},
      {3300, set({platform::FileSystemType::kEcryptfs, {}}), ".*file system type: 3 .'.*/@sync'.\n" + no_uuid,
       "data"},
      {3300, both(set({platform::FileSystemType::kBtrfs, {}}), fail("GetBtrfsUuid")), no_uuid, "data"},
      {3450, set({platform::FileSystemType::kBtrfs, {}, {}, 0xABC}),
       "Update repo path '.*/@sync' uuid\n.*mismatch abc:4d5f53665248425f\nFailed to get old uuid from '.*/@sync'\n" +
           no_history,
       "data|user|view.*"},
      {3300, plant,
       "CreateViewDB: initialize view db failed\nFailed to CreateNewDataDB\nFailed to update data db\n" +
           step,
       "data|user"},
      {3400, remove(package_.view_folder), "Failed to get views in .*/view to update rotate count\n" + step},
      // The line names the view folder.
      {3400, remove(package_.file_folder),
       "Failed to get files in folder .*/view\nfailed to update database versions\n", "user"},
      {3400, run(package_.user, "CREATE TABLE profile_apply_view_table (profile_id)"), ".*" + step},
      {3400, run(package_.user, "DROP TABLE customized_rotate_cnt_table;"),
       "sqlite3_prepare_v2.1., sql = SELECT view_id, rotate_cnt FROM user_db.customized_rotate_cnt_table; \n"
       "Failed to EnumCustomizedRotateTable\n" +
           step},
      {3450, run(package_.user, "DROP TABLE customized_rotate_cnt_table"),
       ".*failed to update user database schema\n"},
      {3300, run(package_.data, "ALTER TABLE file_table RENAME TO gone;"),
       "sqlite3_exec.INSERT INTO file_db.file_table .*no such table: data_db.file_table .1.\n.*Failed to dump record "
       "from data_db to file_db for home_uuid .*\nFailed to update file db for home_uuid .*\n"
       "failed to update databases\n",
       "data"},
      {3450, fail("GetFileSystemType"), "Failed to check btrfs volume '.*/@sync'\n" + no_history,
       "data|user|view.*"},
      {4000, run(package_.user, "ALTER TABLE user_table DROP COLUMN user_type;"),
       ".*: user_type .1.\nfailed to get user type of view 5\n" + rotation},
      {4000, run(View("5"), "DROP TABLE config_table;"),
       "sqlite3_exec.ATTACH DATABASE '.*it''s .*' AS view_db;INSERT OR IGNORE INTO view_db.config_table .key, "
       "value. VALUES \t.'rotate_policy', \t.SELECT .* WHERE view_id = 0..;DETACH DATABASE view_db;.: no such "
       "table: view_db.config_table .1.\nFailed to update rotate_cnt for view 5\nFailed to update rotate count "
       "for view 5\n" +
           rotation},
      {4060, run(View("1"), "ALTER TABLE node_table ADD v_committer_sess_id"), ".*" + views,
       "view/5|view/4294967297"},
      {4100, run(View("5"), "DROP TABLE version_table;"),
       "Failed to exec ATTACH .*_old; END;DETACH DATABASE view_db;\n4100 to 4150, view_db .*: no such table: "
       "view_db.version_table .1.\nFailed to update view db for view 5\n" +
           views}};
  for (const auto& [from, prepare, log, changed, to] : failures) {
    SCOPED_TRACE(log);
    StartAt(from);
    prepare();
    const tests::Dumps before = tests::DumpPackage(package_);
    EXPECT_EQ(Update(to), -1);
    std::string texts;
    for (const std::string& text : sink_.Texts())
      texts += text.starts_with(UpdaterLine("")) ? text.substr(UpdaterLine("").size()) : "| " + text;
    EXPECT_THAT(texts, ::testing::MatchesRegex(log));
    EXPECT_THAT(texts, ::testing::Not(::testing::HasSubstr(" = OFF;")));
    EXPECT_EQ(out_.str(), "");
    EXPECT_FALSE(fs::exists(scratch_));
    EXPECT_EQ(Config(package_.data, "'version'"), "version=" + std::to_string(from) + " ");
    tests::Dumps after = tests::DumpPackage(package_);
    for (const auto& [name, text] : before) {
      EXPECT_EQ(std::regex_match(name, std::regex(changed)) ? text : after[name], text) << name;
    }
  }
  StartAt(3200);
  std::ofstream(package_.data) << std::string(4096, 'x');
  EXPECT_EQ(Update(), -1);
  EXPECT_EQ(sink_.Count(UpdaterLine("failed to connect to databases\n")), 1);
  EXPECT_THAT(sink_.Texts(), ::testing::Not(::testing::Contains(::testing::HasSubstr("PRAGMA"))));
}

TEST_F(ServerUpdatersTest, LeavesAViewAsItWasWhenTheRenamingOfItsUuidFails) {
  uuid_ = "03020100-0504-0706-0809-0a0b0c0d0e0f";  // the old form
  StartAt(3450, "activity");
  fake_.volumes.own.type = platform::FileSystemType::kBtrfs;
  RunSql(View("1"),
         "CREATE TRIGGER t BEFORE UPDATE OF mac_attr ON version_table BEGIN SELECT RAISE(ABORT, 'no'); END;");
  const std::string uuids =
      "SELECT quote(v_file_uuid) || quote(v_mac_attr) || quote(node_delta_file_uuid) FROM node_table;";
  const std::string before = Query(View("1"), uuids);
  EXPECT_EQ(Update(), -1);
  EXPECT_EQ(Query(View("1"), uuids), before);
  EXPECT_EQ(sink_.Count(UpdaterLine("Failed to update view db (1)\n")), 1);
  EXPECT_EQ(sink_.Count(UpdaterLine("Failed to update uuid for view 1\n")), 1);
  EXPECT_TRUE(fs::exists(package_.file_folder + "/" + uuid_));
}

TEST_F(ServerUpdatersTest, AFolderWhoseNameIsNoNumberGetsItsVersionButNoRotation) {
  StartAt(3400, "shared-rotation");
  for (const char* name : {"1abc", "'5\"\n%s\xff"}) fs::copy(Sync("view/1"), Sync("view/") + name);
  ASSERT_EQ(Update(), 0);
  for (const char* name : {"1abc", "'5\"\n%s\xff"}) {
    EXPECT_EQ(Config(View(name), "'rotate_cnt','remove_repo','version'"),
              "remove_repo=0 rotate_cnt=8 version=3450 ");
  }
}

// How SQLite reads tables for the statements of a run, numbers left out, and how often each ran.
struct Plan {
  std::string text;
  std::string whole_tables;  // that are read more than once for it, or for one view of many
  int runs = 0;
};
std::map<std::string, Plan> plans;

void Explain(sqlite3* db, const std::string& sql, Plan& plan) {
  sqlite3_stmt* prepared = nullptr;
  (void)sqlite3_prepare_v2(db, ("EXPLAIN QUERY PLAN " + sql).c_str(), -1, &prepared, nullptr);
  const db_util::Statement statement(prepared);
  std::set<int> repeated;  // the numbers of what stands above lines that are done once for every row
  while (sqlite3_step(prepared) == SQLITE_ROW) {
    const int above = sqlite3_column_int(prepared, 1);
    const std::string line = db_util::ColumnText(prepared, 3);
    if (line.find("config_table") != std::string::npos) continue;  // a handful of rows
    plan.text += std::to_string(above) + " " + line + "\n";
    const bool is_scan = line.starts_with("SCAN ") && line.find("VIRTUAL TABLE") == std::string::npos;
    if ((is_scan && repeated.contains(above)) || line.find("AUTOMATIC") != std::string::npos)
      plan.whole_tables += line + "; ";
    if (is_scan || line.starts_with("SEARCH ")) repeated.insert(above);
    if (line.starts_with("CORRELATED ")) repeated.insert(sqlite3_column_int(prepared, 0));
  }
}

int Note(unsigned /*event*/, void* /*unused*/, void* statement, void* /*unused*/) {
  static const std::regex numbers("[0-9]+");
  auto* const running = static_cast<sqlite3_stmt*>(statement);
  const std::string sql = sqlite3_sql(running);
  if (sql.starts_with("EXPLAIN ") || sql.find("sqlite_stat") != std::string::npos) return 0;
  static std::mutex lock;  // some run at the same time
  const std::lock_guard<std::mutex> guard(lock);
  Plan& plan = plans[std::regex_replace(sql, numbers, "N")];
  if (plan.runs++ == 0) Explain(sqlite3_db_handle(running), sql, plan);
  return 0;
}
int Watch(sqlite3* db, char** /*error*/, const sqlite3_api_routines* /*unused*/) {
  return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, Note, nullptr);
}

// Nodes of 50 views in turn. The last statistics are those of tables with a few rows.
TEST_F(ServerUpdatersTest, NoRowAndNoViewReadsAWholeTableWhateverStatisticsSay) {
  constexpr int kViews = 50;
  const std::string rows =
      "WITH RECURSIVE r (i) AS (SELECT 100 UNION ALL SELECT i + 1 FROM r WHERE i < 1599) ";
  const std::string fill = rows +
                           "INSERT INTO node_table (node_id, view_id, sync_id, name, path) "
                           "SELECT i, i % 50 + 100, i, '', '' FROM r;" +
                           rows + "INSERT INTO version_table (node_id, sync_id) SELECT i, i FROM r;" + rows +
                           "INSERT INTO tree_table SELECT i, 1, 1 FROM r;";
  const std::string users =
      "INSERT INTO user_table (name, view_id, user_type, watch_path) SELECT 'u' || i, i, 0, '' FROM r WHERE i < 150;";
  // Of two that are as good SQLite takes the one that was made last.
  const std::string both =
      "CREATE INDEX version_table_node_id_index ON version_table (node_id); DROP INDEX version_table_sync_id_index;"
      "CREATE INDEX version_table_sync_id_index ON version_table (sync_id);";
  for (const int start : {2577, 2603, 3300, 3400}) {
    const bool is_split = start >= 3400;
    std::map<std::string, std::string> expected;
    for (const std::string statistics :
         {"", "ANALYZE;", "ANALYZE; UPDATE sqlite_stat1 SET stat = '20 20';"}) {
      StartAt(start);
      RunSql(package_.user, (is_split ? "" : rows + users) + statistics);
      RunSql(package_.client, statistics);
      RunSql(is_split ? View("1") : package_.data,
             (is_split ? "" : fill) + statistics + (start == 2577 && !statistics.empty() ? both : ""));
      plans.clear();
      (void)sqlite3_auto_extension(reinterpret_cast<void (*)()>(Watch));  // of the next connections
      while (version_ < 4150 && UpdateAsPartOf(start, 4150) == 0) {
      }
      (void)sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(Watch));
      EXPECT_EQ(version_, 4150);
      for (const auto& [sql, plan] : plans) {
        EXPECT_EQ(plan.whole_tables, "") << sql;
        EXPECT_EQ(plan.text.find("(sync_id=?)"), std::string::npos) << sql;
        const bool is_for_views = plan.runs >= kViews;
        EXPECT_FALSE(is_for_views && std::regex_search(plan.text, std::regex("SCAN (?!view_db)")))
            << sql << plan.text;
        if (statistics.empty()) expected[sql] = plan.text;
        EXPECT_EQ(plan.text, expected[sql]) << sql;
      }
    }
  }
}

TEST_F(ServerUpdatersTest, EveryRowOfAViewIsInOneOfSeveralPassesInTheStoredOrder) {
  StartAt(3300);
  RunSql(
      package_.data,
      "UPDATE version_table SET ver_id = -4 WHERE ver_id = 1; UPDATE tree_table SET rowid = rowid * 1000;");
  db_util::Database db;
  ASSERT_EQ(db_util::OpenScratchDatabase(scratch_, db), 0);
  ASSERT_EQ(updater::AttachDatabase(db.get(), "data_db", package_.data), 0);
  updater::server::ViewRows rows(30);
  rows.Begin(db.get(), {1, 5});
  ASSERT_GT(rows.passes(), 3);
  const auto read = [&db](const std::string& sql) {
    std::vector<int> found;
    const auto add = [&found](sqlite3_stmt* row) {
      return found.push_back(sqlite3_column_int(row, 0)), true;
    };
    EXPECT_TRUE(db_util::ForEachRow(db.get(), sql, add).ok()) << sql;
    return found;
  };
  const std::array tables = {"node_table", "version_table", "tree_table"};
  std::map<std::string, std::vector<int>> found;
  for (int pass = 0; pass < rows.passes(); ++pass) {
    ASSERT_TRUE(rows.BeginPass(db.get(), pass).ok());
    for (const char* table : tables) {
      for (const int row : read("SELECT stored.rowid FROM " + rows.From(table, 1)))
        found[table].push_back(row);
    }
  }
  for (const char* table : tables) {
    std::vector<int>& rows_of_view = found[table];
    EXPECT_GT(rows_of_view.size(), 3U);
    EXPECT_EQ(rows_of_view,
              read("SELECT rowid FROM " + updater::server::ViewRows().From(table, 1) + " ORDER BY 1"));
  }
}

// A database that somebody has altered is split as the plain statements would.
TEST_F(ServerUpdatersTest, RowsAreFoundWhateverTheTypesAndNamesOfColumnsAre) {
  const auto retype = [](const std::string& table, const std::string& column, const std::string& type) {
    return "DROP INDEX IF EXISTS " + table + "_" + column + "_index; ALTER TABLE " + table + " ADD x " +
           type + "; UPDATE " + table + " SET x = CAST(" + column + " AS TEXT); ALTER TABLE " + table +
           " DROP " + column + "; ALTER TABLE " + table + " RENAME x TO " + column + ";";
  };
  const std::string count =
      "SELECT (SELECT count(*) FROM node_table), (SELECT count(*) FROM version_table), count(*) FROM tree_table";
  const std::string found = Found(3300, {}, "view/1", count);
  for (const std::string& change :
       {retype("node_table", "view_id", "TEXT"), std::string("ALTER TABLE version_table ADD rowid;"),
        std::string("ALTER TABLE node_table ADD rowid;"),
        // More than one pass.
        std::string("CREATE TABLE more AS SELECT zeroblob(50000000) UNION ALL SELECT zeroblob(50000001);")}) {
    EXPECT_EQ(Found(3300, {{"data", change}}, "view/1", count), found) << change;
    EXPECT_EQ(SchemaOf(View("1")), SchemaOf(View("5")));
  }
  const std::string joined = "SELECT count(v_mode) FROM node_table";
  EXPECT_EQ(Found(3004, {{"data", retype("node_table", "sync_id", "")}}, "data", joined),
            Found(3004, {}, "data", joined));
  const std::string progress = "SELECT value FROM config_table WHERE key = 'sync_id_view_1'";
  EXPECT_EQ(Found(3300, {{"client", retype("progress_table", "view_id", "")}}, "client", progress),
            Found(3300, {{"client", "DELETE FROM progress_table"}}, "client", progress));
  EXPECT_EQ(Found(3300, {{"user", "DELETE FROM user_table"}, {"client", "DROP TABLE progress_table"}},
                  "client", progress),
            "");
  const std::string other = "CREATE TABLE progress_table AS SELECT 1 AS view_id, 4711 AS sync_id";
  EXPECT_EQ(Found(3300, {{"data", other}}, "client", progress), "4711 ") << "data_db is looked into first";
}

// The views of users are visited in the order 5, 4294967297, 1, 17; the last one is a share user's.
TEST_F(ServerUpdatersTest, AwkwardContent) {
  const std::string no_users = "DELETE FROM user_table;";
  const std::string rotation = "SELECT * FROM rotate_setting_table";
  const std::string policy = "SELECT value FROM config_table WHERE key = 'rotate_policy'";
  const auto set = [](const std::string& key, char value) {
    return "UPDATE config_table SET value = '" + std::string(1, value) + "' WHERE key = '" + key + "'";
  };
  // One database without a branch makes all branches empty.
  (void)Found(2577, {{"client", "INSERT INTO config_table VALUES ('branch', 'master')"}}, "data", "SELECT 1");
  // A log database is left over, and a setting that is missing becomes NULL.
  EXPECT_EQ(Found(3200,
                  {{"data", "DELETE FROM config_table WHERE key = 'log_del_span'"},
                   {"log",
                    "CREATE TABLE config_table (key PRIMARY KEY ON CONFLICT REPLACE, value);"
                    "INSERT INTO config_table VALUES ('version', 'old')"}},
                  "log", "SELECT quote(value) FROM config_table WHERE key IN ('log_del_span', 'version')"),
            "NULL '3300' ");
  EXPECT_EQ(Found(3300, {{"user", no_users}}, "user", "SELECT * FROM config_table"),
            "version|3400 view_id|1 branch|master ");
  EXPECT_TRUE(fs::is_empty(package_.view_folder));
  EXPECT_EQ(Found(3450, {{"user", no_users}}, "user", rotation), "0|8|fifo ");
  EXPECT_EQ(Found(3450, {{"user", no_users}, {"data", set("remove_repo", '1')}}, "user", rotation),
            "0|0|fifo ");
  const std::string shared = "INSERT INTO customized_rotate_cnt_table VALUES (0, 12)";
  EXPECT_EQ(Found(3450, {{"user", no_users + shared}}, "user", rotation), "0|12|fifo ");
  // The last user's view decides the shared rotation.
  EXPECT_EQ(Found(3450,
                  {{"view/5", set("rotate_cnt", '3')},
                   {"view/17", set("rotate_cnt", '7')},
                   {"view/1", set("remove_repo", '1')}},
                  "user", rotation),
            "0|0|fifo 17|7|fifo ");
  const std::string own_policies = "UPDATE rotate_setting_table SET rotate_policy = view_id";
  EXPECT_EQ(Found(4000, {{"user", own_policies}}, "view/17", policy), "17 ");
  const std::string kept = "INSERT INTO config_table VALUES ('rotate_policy', 'kept')";
  EXPECT_EQ(Found(4000, {{"view/5", kept}}, "view/5", policy), "kept ");
}

}  // namespace
