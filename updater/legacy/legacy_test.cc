#include "tests/support/fixtures.h"
#include "tests/support/logged_test.h"
#include "updater/legacy/legacy_chain.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using tests::Query;

const std::array<std::string, 3> kNames = {"data", "user", "client"};

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
    Reset();
  }
  void Reset(const std::string& version = "'2500'") {
    for (const std::string& name : kNames) {
      fs::create_directories(fs::path(PathOf(name)).parent_path());
      fs::copy_file(tests::DatabasesOf(old_).at(name), PathOf(name), fs::copy_options::overwrite_existing);
      Change(name, Version(version));
    }
    sink_.Clear();
  }
  void Change(const std::string& name, const std::string& sql) {
    tests::RunSql(PathOf(name), "PRAGMA synchronous = OFF; PRAGMA writable_schema = ON;" + sql);
  }
  // The first step that fails, or 0. That one changes nothing, and no step leaves another file.
  int Run() {
    updater::legacy::LegacySteps chain;
    for (const int step : {1, 3, 4, 5, 6, 7, 8, 9, 10, 11}) {
      const auto before = tests::ReadTree(paths_.volume);
      const bool failed = chain.RunStep(step, paths_) < 0;
      const auto after = tests::ReadTree(paths_.volume);
      EXPECT_LE(after.size(), before.size()) << step;
      EXPECT_TRUE(!failed || after == before) << step;
      if (failed) return step;
    }
    return 0;
  }
  // After a change of the databases as they were: the only line that is logged, or the step.
  std::string RunAfter(const std::string& name, const std::string& sql) {
    Reset();
    Change(name, sql);
    const int step = Run();
    return sink_.lines().size() == 1 ? sink_.Texts().front() : std::to_string(step);
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

// Each table, and each column that SQLite can drop, with what must stay of its rows.
constexpr const char* kParts =
    "SELECT 'DROP TABLE ' || name, 'SELECT 1' FROM sqlite_master WHERE sql LIKE 'CREATE TABLE%' AND name NOT "
    "LIKE 'sqlite_%' UNION ALL SELECT 'ALTER TABLE ' || t.name || ' DROP ' || c.name, 'SELECT ' || (SELECT "
    "group_concat(name) FROM pragma_table_info(t.name) WHERE name != c.name) || ' FROM ' || t.name || ' ORDER "
    "BY rowid' FROM sqlite_master AS t, pragma_table_info(t.name) AS c WHERE t.type = 'table' AND c.pk = 0 AND "
    "t.name || '.' || c.name NOT IN ('user_table.name', 'session_table.sess_id', 'config_table.key', "
    "'sqlite_sequence.name', 'sqlite_sequence.seq')";

TEST_F(LegacyTest, WhateverIsMissingIsMadeOrRefused) {
  std::string refused;
  for (const std::string& name : kNames) {
    const std::string drop_indexes = Query(
        PathOf(name), "SELECT 'DROP INDEX ' || name FROM sqlite_master WHERE sql LIKE 'CREATE INDEX%'", ";");
    std::istringstream parts(Query(PathOf(name), kParts, "\n"));
    for (std::string drop, kept; std::getline(parts, drop, '|') && std::getline(parts, kept);) {
      const std::string rows = Query(tests::DatabasesOf(old_).at(name), kept);
      const std::string line = RunAfter(name, std::string(drop_indexes).append(drop));
      if (line != "0") {
        EXPECT_THAT(
            line, ContainsRegex(" is missing (and cannot be given a default|beside a data_db with nodes)\n"));
        refused.append(drop.substr(drop.rfind(' ')));
        continue;
      }
      EXPECT_EQ(Schemas(paths_.copies), layout_) << drop;
      EXPECT_EQ(Query(PathOf(name), kept), rows) << drop;
      EXPECT_EQ(Query(PathOf(name), "PRAGMA integrity_check"), "ok ") << drop;
    }
  }
  EXPECT_EQ(
      refused,
      " value view_id name path node_id node_id parent_id distance node_id user_table view_id user_type "
      "watch_path value value view_id name path view_id");
}

// A database, what is done to it (without a verb: a table that takes another's place), and what is told.
constexpr const char* kNotUnderstood = R"(
data|delta_table (node_id TEXT)|: column delta_table.node_id is declared as 'text', not as 'integer'
data|delta_table (node_id INTEGER DEFAULT 1)|declared as 'integer default 1', not as 'integer'
data|delta_table (node_id INTEGER, CHECK (node_id > 0))|column delta_table.check is not of the layout
data|tree_table (node_id "INTEGER NOT NULL")|declared as '"integer not null"', not as 'integer not null'
data|config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE) WITHOUT ROWID|table config_table is declared as
data|tree_table (node_id INTEGER NOT NULL); INSERT INTO tree_table VALUES (1)|parent_id is missing and cannot be
user|user_table (uid INTEGER); INSERT INTO user_table VALUES (1)|user_table.id is missing and cannot be
client|config_table (key, value)|column config_table.key is declared as '', not as 'varchar primary key
data|ALTER TABLE node_table ADD "a%s" INT|column node_table.a%s is not of the layout
data|DROP TABLE config_table; CREATE TABLE [no'body"s] (a)|table no'body"s is not of the layout
client|CREATE VIEW node AS SELECT 1|view node is not of the layout
user|CREATE TRIGGER t AFTER INSERT ON user_table BEGIN SELECT 1; END|trigger t is not of the layout
user|DROP TABLE session_table; CREATE VIEW session_table AS SELECT 1 a|view session_table is not of the layout
user|DROP TABLE config_table; CREATE VIEW config_table AS SELECT 'version' key, 1 value|config_table is a view
data|DROP INDEX node_table_path_index; CREATE INDEX node_table_path_index ON node_table (name)|index node_table_path
data|CREATE UNIQUE INDEX mine ON node_table (node_id)|index mine is not of the layout
data|DROP TABLE file_table; CREATE INDEX file_table ON node_table (name)|index file_table is not of the layout
client|UPDATE sqlite_master SET sql = 'x' WHERE name = 'node_table'|malformed database schema
client|UPDATE sqlite_master SET type = CAST(x'ff27' AS TEXT) WHERE name = 'progress_table'|malformed
data|UPDATE config_table SET value = 'x' WHERE key = 'version'|'x' is no version number
data|UPDATE config_table SET value = -2500 WHERE key = 'version'|'-2500' is no version number
user|UPDATE config_table SET value = 99999999999 WHERE key = 'version'|2500 beside a user_db at 99999999999
data|UPDATE config_table SET value = 3004 WHERE key = 'version'|at version 2500 beside a data_db at 3004
client|UPDATE config_table SET value = 2578 WHERE key = 'version'|V7: database )";

TEST_F(LegacyTest, WhatIsNotUnderstoodIsRefusedUnchanged) {
  std::istringstream cases(kNotUnderstood + 1);
  for (std::string name, sql, told;
       std::getline(cases, name, '|') && std::getline(cases, sql, '|') && std::getline(cases, told);) {
    const bool is_table = std::islower(sql[0]) != 0;
    if (is_table)
      sql = std::string("DROP TABLE ").append(sql, 0, sql.find(' ')).append("; CREATE TABLE ").append(sql);
    EXPECT_THAT(RunAfter(name, sql), AllOf(HasSubstr(told), HasSubstr(".bak cannot be brought to 2577: ")));
  }
  Reset("3004");
  std::ofstream(paths_.copies.client) << std::string(4000, 'x');
  EXPECT_EQ(Run(), 7);
  Change("data", Version("2500"));
  fs::remove(paths_.copies.user);
  EXPECT_EQ(Run(), 1);
  EXPECT_THAT(sink_.Texts(),
              ElementsAre(HasSubstr(": file is not a database (26)"), HasSubstr(": there is no such")));
}

TEST_F(LegacyTest, VersionsDecideWhatIsTouched) {
  for (const char* version : {"2577", "'2577x'", "4151"}) {
    Reset(version);
    for (const std::string& name : kNames) Change(name, "CREATE TABLE other (a)");
    const auto before = tests::ReadTree(paths_.volume);
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(tests::ReadTree(paths_.volume) == before) << version;
  }
  for (const char* version : {"2576", "NULL", "''", "x'32353030'", "0"}) {
    for (const std::string& name : kNames) {
      Reset("2577");
      Change(name, "INSERT INTO config_table VALUES ('branch', 'old');" + Version(version));
      EXPECT_EQ(Run(), 0) << version << name;
      EXPECT_TRUE(tests::DumpPackage(paths_.copies) == whole_) << version << name;
    }
  }
}

TEST_F(LegacyTest, DatabasesThatAreEmptyOrWrittenInAnotherWay) {
  const auto values = [this](const std::string& name) {
    return Query(PathOf(name), "SELECT key || '=' || value FROM config_table ORDER BY key");
  };
  for (const char* name : {"data", "user"}) std::ofstream(PathOf(name)).flush();
  fs::remove(paths_.copies.client);
  EXPECT_EQ(Run(), 0);
  EXPECT_FALSE(fs::exists(paths_.copies.client));
  EXPECT_EQ(values("user"), "version=2577 view_id=1 ");
  EXPECT_EQ(
      values("data"),
      "delta_file_id=0 file_id=0 rotate_cnt=32 rotate_span=15552000 row1=1 serial= sync_id=0 version=2577 ");
  // Counters begin above what is in use, numbers of rows that are gone stay so, further indexes stay.
  EXPECT_EQ(RunAfter("data", R"(DELETE FROM config_table; DELETE FROM node_table WHERE node_id = 12;
      ALTER TABLE node_table DROP ver_cnt; DROP INDEX node_table_path_index; DROP TABLE delta_table;
      DROP TABLE version_table; CREATE TABLE version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT,
      node_id INTEGER);
      INSERT INTO version_table VALUES (5, 6); CREATE TABLE "Delta_Table"(Delta_File_Id  integer--,
        ,[NODE_ID]/**/INTEGER DEFAULT NULL); INSERT INTO delta_table VALUES (9223372036854775807, 8);
      CREATE INDEX own ON node_table (lower(name)) WHERE name != ';' /* mine)"),
            "0");
  EXPECT_EQ(values("data"),
            "delta_file_id=9223372036854775807 file_id=7 rotate_cnt=32 rotate_span=15552000 row1=1 serial= "
            "sync_id=22 version=2577 ");
  EXPECT_EQ(Query(paths_.copies.data,
                  "SELECT seq, (SELECT count(*) FROM sqlite_master WHERE name = 'own'), d.* "
                  "FROM sqlite_sequence, delta_table AS d WHERE name = 'node_table'"),
            "12|1|8||||9223372036854775807 ");
}

TEST_F(LegacyTest, AFailureIsRolledBackAndALogCounts) {
  // More than fits into the cache, and something in the way of the second table. Free pages may change.
  EXPECT_EQ(RunAfter("user",
                     "UPDATE user_table SET watch_path = hex(zeroblob(8000000)) WHERE id = 1;"
                     "ALTER TABLE user_table DROP gid; ALTER TABLE session_table DROP ip;"
                     "CREATE INDEX session_table_of_2577 ON session_table (uid); VACUUM"),
            "4");
  Reset();
  tests::RunSqlKilled(paths_.copies.data, "ALTER TABLE delta_table DROP to_id;" + Version("2501"));
  updater::legacy::LegacySteps chain;
  EXPECT_EQ(chain.RunStep(3, paths_), 0);
  EXPECT_EQ(chain.RunStep(11, paths_), -1);
  EXPECT_THAT(sink_.Texts(), ElementsAre(HasSubstr("is missing: V6 has not run")));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Schemas(paths_.copies), layout_);
}

}  // namespace
