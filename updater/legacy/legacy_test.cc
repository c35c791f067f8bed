#include "tests/support/fixtures.h"
#include "tests/support/logged_test.h"
#include "updater/legacy/legacy_chain.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using tests::Query;
using tests::RunSql;

constexpr const char* kUnsafe = "PRAGMA synchronous = OFF;";

std::string Version(const std::string& text) {
  return "UPDATE config_table SET value = " + text + " WHERE key = 'version';";
}

// The databases are those of tests/data, whose layout nobody has taken from that of the chain.
class LegacyTest : public tests::LoggedTest {
 protected:
  void SetUp() override {
    tests::WriteFixture(2577, "", "", old_);
    whole_ = tests::DumpPackage(old_);
    layout_ = Schemas(old_);
    for (const auto& [name, path] : tests::DatabasesOf(old_)) RunSql(path, Version("'2500'"));
    Reset();
  }
  void Reset() {
    for (const auto& [name, path] : tests::DatabasesOf(old_)) {
      fs::create_directories(fs::path(PathOf(name)).parent_path());
      fs::copy_file(path, PathOf(name), fs::copy_options::overwrite_existing);
    }
    sink_.Clear();
  }
  void Change(const std::string& name, const std::string& sql) { RunSql(PathOf(name), kUnsafe + sql); }
  // The first step that fails; 0 when none does. That one changes nothing, and no step leaves another file.
  int Run() {
    updater::legacy::LegacySteps chain;
    for (const int step : {1, 3, 4, 5, 6, 7, 8, 9, 10, 11}) {
      const auto before = tests::ReadTree(paths_.volume);
      const bool failed = chain.RunStep(step, paths_) < 0;
      const auto after = tests::ReadTree(paths_.volume);
      EXPECT_EQ(after.size(), before.size()) << step;
      if (!failed) continue;
      EXPECT_TRUE(after == before) << step;
      return step;
    }
    return 0;
  }
  // The same after a change of the databases as they were; the step or what it logs.
  std::string RunAfter(const std::string& name, const std::string& sql) {
    Reset();
    Change(name, sql);
    const int step = Run();
    return sink_.Texts().empty() ? std::to_string(step) : sink_.Texts().front();
  }
  const std::string& PathOf(const std::string& name) const {
    return name == "data" ? paths_.copies.data : name == "user" ? paths_.copies.user : paths_.copies.client;
  }
  static std::string Schemas(const package::PackagePaths& where) {
    return tests::SchemaOf(where.data) + tests::SchemaOf(where.user) + tests::SchemaOf(where.client);
  }

  const package::PackagePaths old_ = tests::PackageIn(folder_ / "old");
  const package::VolumePaths paths_{folder_ / "vol'ume %s"};
  tests::Dumps whole_;
  std::string layout_;
};

TEST_F(LegacyTest, WhateverIsMissingIsMadeOrRefused) {
  std::string refused;
  const auto expect = [&](const std::string& name, const std::string& sql, const std::string& kept) {
    Reset();
    const std::string rows = kept.empty() ? "" : Query(PathOf(name), kept);
    const std::string line = RunAfter(name, sql);
    if (line != "0") {
      EXPECT_THAT(line, HasSubstr("is missing and cannot be given a default\n"));
      refused += sql.substr(sql.rfind(' ') + 1) + " ";
      return;
    }
    EXPECT_EQ(Schemas(paths_.copies), layout_) << sql;
    EXPECT_EQ(kept.empty() ? "" : Query(PathOf(name), kept), rows) << sql;
    EXPECT_EQ(Query(PathOf(name), "PRAGMA integrity_check"), "ok ");
    EXPECT_EQ(Query(PathOf(name), "SELECT value FROM config_table WHERE key = 'version'"), "2577 ");
  };
  for (const std::string name : {"data", "user", "client"}) {
    const auto names = [&](const std::string& query) {
      return std::istringstream(Query(PathOf(name), "SELECT name FROM " + query));
    };
    const std::string drop_indexes = Query(
        PathOf(name), "SELECT 'DROP INDEX ' || name FROM sqlite_master WHERE sql LIKE 'CREATE INDEX%'", ";");
    expect(name, drop_indexes, "");
    Reset();
    auto tables = names("sqlite_master WHERE sql LIKE 'CREATE TABLE%' AND name NOT LIKE 'sqlite_%'");
    for (std::string table; tables >> table;) {
      const std::string columns = "pragma_table_info('" + table + "') WHERE name != '";
      expect(name, "DROP TABLE " + table, "");
      Reset();
      const auto* const unique = table == "config_table" ? "key" : table == "user_table" ? "name" : "sess_id";
      auto others = names(columns + unique + "' AND pk = 0");
      for (std::string column; others >> column;) {
        Reset();
        const std::string same =
            Query(PathOf(name), "SELECT group_concat(name) FROM " + columns + column + "'");
        expect(name, drop_indexes + "ALTER TABLE " + table + " DROP " + column,
               "SELECT " + same + " FROM " + table + " ORDER BY rowid");
      }
    }
  }
  EXPECT_EQ(refused,
            "value name path node_id parent_id distance user_type watch_path value value name path ");
}

TEST_F(LegacyTest, WhatIsNotUnderstoodIsRefusedUnchanged) {
  const std::string text =
      "; CREATE TABLE file_table (file_id INTEGER PRIMARY KEY, attribute INTEGER DEFAULT 0,";
  const struct {
    const char* name;
    std::string sql;
    std::string reason;
  } cases[] = {
      {"data", "DROP TABLE delta_table; CREATE TABLE delta_table (node_id TEXT)",
       "V1: database " + paths_.copies.data +
           " cannot be brought to 2577: column delta_table.node_id is declared as 'text', not as 'integer'\n"},
      {"data", "ALTER TABLE node_table ADD \"a\n%s\" INT", "column node_table.a\n%s is not of the layout"},
      {"data", "CREATE TABLE [no'body\"s\xFF] (a)", "table no'body\"s\xFF is not of the layout"},
      {"data", "DROP TABLE config_table; CREATE TABLE other (a)", "table other is not of the layout"},
      {"client", "CREATE VIEW node AS SELECT 1", "view node is not of the layout"},
      {"user", "CREATE TRIGGER t AFTER INSERT ON user_table BEGIN SELECT 1; END", "trigger t is not of"},
      {"user", "DROP TABLE session_table; CREATE VIEW session_table AS SELECT 1 uid",
       "view session_table is"},
      {"user", "DROP TABLE config_table; CREATE VIEW config_table AS SELECT 'version' key, 1 value",
       "config_table is a view"},
      {"data", "DROP INDEX node_table_path_index; CREATE INDEX node_table_path_index ON node_table (name)",
       "index node_table_path_index is declared as 'CREATE INDEX node_table_path_index ON node_table (name)'"},
      {"data", "CREATE UNIQUE INDEX mine ON node_table (node_id)", "index mine is not of the layout"},
      {"data", "DROP TABLE file_table; CREATE INDEX file_table ON node_table (name)",
       "index file_table is not"},
      {"data", "DROP TABLE file_table" + text + " CHECK (attribute > 0))",
       "column file_table.check is not of"},
      {"data", "DROP TABLE file_table" + text + " ref_cnt INTEGER DEFAULT 1)", "'integer default 1', not as"},
      {"data", "DROP TABLE file_table" + text + " size \"INTEGER DEFAULT 0\")",
       "'\"integer default 0\"', not"},
      {"data", "DROP TABLE file_table" + text + " size INTEGER DEFAULT 0) WITHOUT ROWID",
       "file_table is declared"},
      {"data",
       "DROP TABLE tree_table; CREATE TABLE tree_table (node_id INTEGER NOT NULL); INSERT INTO tree_table VALUES (1)",
       "column tree_table.parent_id is missing and cannot be given a default"},
      {"user",
       "DROP TABLE user_table; CREATE TABLE user_table (uid INTEGER); INSERT INTO user_table VALUES (1)",
       "column user_table.id is missing and cannot be given a default"},
      {"client", "DROP TABLE config_table; CREATE TABLE config_table (key, value)",
       "config_table.key is declared as ''"},
      {"data", Version("'x'"), "'x' is no version number"},
      {"data", Version("-2500"), "'-2500' is no version number"},
      {"user", Version("99999999999"), "at version 2500 beside a user_db at 99999999999"},
      {"data", Version("3004"), "at version 2500 beside a data_db at 3004"},
      {"client", Version("2578"), "V7: database " + paths_.copies.data},
      {"client", "UPDATE sqlite_master SET sql = sql || 'x' WHERE name = 'node_table'",
       "malformed database schema"},
  };
  for (const auto& [name, sql, reason] : cases) {
    EXPECT_THAT(RunAfter(name, "PRAGMA writable_schema = ON;" + sql), HasSubstr(reason));
    EXPECT_EQ(sink_.lines().size(), 1);
  }
  for (const auto& [name, reason] :
       {std::pair("user", "file is not a database (26)"), {"client", "malformed"}}) {
    Reset();
    std::ofstream(PathOf(name), std::ios::in).seekp(reason[0] == 'f' ? 0 : 100) << std::string(4000, 'x');
    EXPECT_NE(Run(), 0);
    EXPECT_THAT(sink_.Texts().front(), HasSubstr(reason));
  }
  Reset();
  fs::remove(paths_.copies.user);
  EXPECT_EQ(Run(), 1);
  EXPECT_THAT(sink_.Texts().front(),
              HasSubstr("user-db.sqlite.bak cannot be brought to 2577: there is no such file"));
}

TEST_F(LegacyTest, VersionsDecideWhatIsTouched) {
  const auto untouched = [&](const std::string& version) {
    Reset();
    for (const char* name : {"data", "user", "client"})
      Change(name, "CREATE TABLE other (a);" + Version(version));
    const auto before = tests::ReadTree(paths_.volume);
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(tests::ReadTree(paths_.volume) == before) << version;
  };
  for (const char* version : {"2577", "'2577x'", "4151"}) untouched(version);
  for (const char* version : {"2576", "NULL", "''", "x'32353030'", "0"}) {
    for (const char* name : {"data", "user", "client"}) {
      Reset();
      for (const char* other : {"data", "user", "client"}) Change(other, Version("2577"));
      Change(name, "INSERT INTO config_table VALUES ('branch', 'old');" + Version(version));
      EXPECT_EQ(Run(), 0) << version << name;
      EXPECT_TRUE(tests::DumpPackage(paths_.copies) == whole_) << version << name;
    }
  }
}

TEST_F(LegacyTest, DatabasesThatAreEmptyOrWrittenInAnotherWay) {
  Reset();
  for (const char* name : {"data", "user"}) std::ofstream(PathOf(name)).flush();
  fs::remove(paths_.copies.client);
  EXPECT_EQ(Run(), 0);
  EXPECT_FALSE(fs::exists(paths_.copies.client));
  const std::string values =
      "SELECT group_concat(key || ' ' || value) FROM (SELECT * FROM config_table ORDER BY key)";
  EXPECT_EQ(Query(paths_.copies.user, values), "version 2577,view_id 1 ");
  EXPECT_EQ(
      Query(paths_.copies.data, values),
      "delta_file_id 0,file_id 0,rotate_cnt 32,rotate_span 15552000,row1 1,serial ,sync_id 0,version 2577 ");
  // Counters begin above what is in use, numbers of rows that are gone stay so, further indexes stay.
  const std::string delta =
      "CREATE TABLE \"Delta_Table\"(Delta_File_Id  integer--\n,[NODE_ID]/**/INTEGER DEFAULT NULL);";
  EXPECT_EQ(RunAfter("data",
                     "DELETE FROM config_table; DROP INDEX node_table_path_index;"
                     "DELETE FROM node_table WHERE node_id = 12; ALTER TABLE node_table DROP data;"
                     "ALTER TABLE node_table DROP ver_cnt; CREATE INDEX own ON node_table (lower(name));"
                     "DROP TABLE delta_table;" +
                         delta + "INSERT INTO delta_table VALUES (7, 8)"),
            "0");
  EXPECT_EQ(
      Query(paths_.copies.data, values),
      "delta_file_id 8,file_id 7,rotate_cnt 32,rotate_span 15552000,row1 1,serial ,sync_id 22,version 2577 ");
  EXPECT_EQ(Query(paths_.copies.data, "SELECT seq FROM sqlite_sequence WHERE name = 'node_table'"), "12 ");
  EXPECT_EQ(Query(paths_.copies.data, "SELECT * FROM delta_table"), "8||||7 ");
  EXPECT_EQ(Query(paths_.copies.data,
                  "SELECT count(*) FROM sqlite_master WHERE name IN ('own', 'node_table_path_index')"),
            "2 ");
}

TEST_F(LegacyTest, AFailureIsRolledBackAndCompanionsCount) {
  // The file table could be changed.
  const std::string before = "ALTER TABLE file_table DROP hash; ALTER TABLE delta_table DROP to_id;";
  EXPECT_THAT(RunAfter("data", before + "CREATE INDEX delta_table_of_2577 ON delta_table (node_id)"),
              HasSubstr("there is already an index named delta_table_of_2577"));
  Reset();
  tests::RunSqlKilled(paths_.copies.data, before + Version("2501"));
  EXPECT_EQ(updater::legacy::LegacySteps().RunStep(3, paths_), 0);
  EXPECT_EQ(Query(paths_.copies.data, "SELECT value FROM config_table WHERE key = 'version'"), "2501 ");
  EXPECT_EQ(updater::legacy::LegacySteps().RunStep(11, paths_), -1);
  EXPECT_THAT(sink_.Texts().back(), HasSubstr("is missing: V6 has not run"));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Schemas(paths_.copies), layout_);
}

}  // namespace
