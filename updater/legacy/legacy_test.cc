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
  EXPECT_EQ(refused, "value name path node_id parent_id distance user_type watch_path value value name path ");
}

}  // namespace
