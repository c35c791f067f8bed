#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/command_line.h"
#include "ctl/sample_volume.h"
#include "db-util/database.h"
#include "db-util/query.h"
#include "updater/run_paths.h"

namespace {

class CtlTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "ctl_test_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  int Run(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "updater-ctl");
    out_.str("");
    err_.str("");
    return ctl::RunCommandLine(static_cast<int>(arguments.size()), arguments.data(), {out_, err_});
  }

  [[nodiscard]] std::string volume() const { return folder_ + "/volume"; }
  [[nodiscard]] updater::RunPaths paths() const { return updater::RunPaths(volume()); }

  static int Count(const std::string& database, const std::string& query) {
    db_util::Database db;
    int count = -1;
    EXPECT_EQ(db_util::OpenQuietly(database, db, db_util::OpenMode::kReadWrite), SQLITE_OK) << database;
    EXPECT_TRUE(db_util::QueryInt(db.get(), query, count).ok()) << query;
    return count;
  }

  std::string folder_;
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(CtlTest, SampleAt2577HoldsThePromisedContent) {
  ASSERT_EQ(Run({"sample", volume().c_str(), "--nodes", "100", "--versions", "250", "--views", "7"}), 0);
  const std::string data = paths().data_db;
  EXPECT_EQ(Count(data, "SELECT count(*) FROM node_table"), 100);
  EXPECT_EQ(Count(data, "SELECT count(*) FROM version_table"), 250);
  EXPECT_EQ(Count(data, "SELECT value FROM config_table WHERE key = 'version'"), 2577);
  EXPECT_EQ(Count(data, "SELECT count(*) FROM config_table WHERE key = 'branch'"), 0);
  EXPECT_EQ(Count(paths().user_db, "SELECT count(DISTINCT view_id) FROM user_table"), 7);
  EXPECT_EQ(Count(paths().user_db, "SELECT count(DISTINCT user_type) FROM user_table"), 4);
  for (const char* kind :
       {"SELECT count(*) > 0 FROM node_table WHERE name LIKE '%''%'",
        "SELECT count(*) > 0 FROM node_table WHERE name LIKE '%!%%' ESCAPE '!'",
        "SELECT count(*) > 0 FROM node_table WHERE length(CAST(name AS BLOB)) > length(name)",
        "SELECT max(length(CAST(name AS BLOB))) = 255 FROM node_table",
        "SELECT count(DISTINCT attribute) = 4 FROM node_table",
        "SELECT count(*) > 0 FROM node_table WHERE ver_cnt = 0",
        "SELECT count(*) > 0 FROM node_table WHERE ver_cnt > 1",
        "SELECT count(*) > 0 FROM version_table WHERE mac_attr IS NULL",
        "SELECT count(*) > 0 FROM version_table WHERE mac_attr = ''",
        "SELECT count(*) > 0 FROM version_table WHERE mac_attr != ''",
        "SELECT count(*) > 0 FROM version_table WHERE file_id = 0",
        "SELECT count(*) > 0 FROM version_table WHERE file_id > 0",
        "SELECT count(*) > 0 FROM version_table WHERE client_id = 'admin@StorageHost'"}) {
    EXPECT_EQ(Count(data, kind), 1) << kind;
  }
  // The rows fit each other: paths, closure, counters and current versions.
  for (const char* contradiction :
       {"SELECT count(*) FROM node_table n LEFT JOIN node_table p ON p.node_id = n.parent_id WHERE n.path !="
        " iif(n.parent_id = 0, '/', rtrim(p.path, '/') || '/' || n.name) OR p.view_id != n.view_id",
        "SELECT count(*) FROM node_table n WHERE ver_cnt != (SELECT count(*) FROM version_table v WHERE"
        " v.node_id = n.node_id)",
        "SELECT count(*) FROM node_table n WHERE ver_cnt > 0 AND NOT EXISTS (SELECT 1 FROM version_table v"
        " WHERE v.node_id = n.node_id AND v.sync_id = n.sync_id)",
        "SELECT count(*) FROM node_table n WHERE parent_id != 0 AND NOT EXISTS (SELECT 1 FROM tree_table t"
        " WHERE t.node_id = n.node_id AND t.parent_id = n.parent_id AND t.distance = 1)",
        "SELECT count(*) FROM version_table WHERE file_id > 0 AND file_id NOT IN (SELECT file_id FROM"
        " file_table)"}) {
    EXPECT_EQ(Count(data, contradiction), 0) << contradiction;
  }
}

TEST_F(CtlTest, SampleNeverTouchesAVolumeThatIsThere) {
  ASSERT_EQ(Run({"sample", volume().c_str()}), 0);
  const auto written = std::filesystem::last_write_time(paths().data_db);
  EXPECT_EQ(Run({"sample", volume().c_str(), "--nodes", "10"}), 1);
  EXPECT_NE(err_.str().find("exists already"), std::string::npos) << err_.str();
  EXPECT_EQ(std::filesystem::last_write_time(paths().data_db), written);
}

TEST_F(CtlTest, WhatCannotBeDoneFails) {
  EXPECT_NE(Run({}), 0);
  EXPECT_NE(Run({"sampel", volume().c_str()}), 0);
  EXPECT_NE(Run({"run"}), 0);
  EXPECT_NE(Run({"run", volume().c_str()}), 0);  // no such folder
  EXPECT_NE(Run({"sample", volume().c_str(), "--version", "3100"}), 0);
  EXPECT_NE(err_.str().find("no updater leads to version 3100"), std::string::npos) << err_.str();
  EXPECT_NE(Run({"sample", volume().c_str(), "--views", "0"}), 0);
}

TEST_F(CtlTest, RunShowsTheWholeUpgradeAndEndsDone) {
  ASSERT_EQ(Run({"sample", volume().c_str()}), 0);
  ASSERT_EQ(Run({"run", volume().c_str()}), 0) << out_.str() << err_.str();
  const std::string report = out_.str();
  for (const char* part : {"(, 2577)", "updating from (, 2577)  to (master, 3004) ",
                           "(master, 4100)   -> (master, 4150)", "view databases: 5 (1, 2, 3, 5, 6)\n",
                           "view 6         (master, 4150)", "removed left.the.company", "Status: done"}) {
    EXPECT_NE(report.find(part), std::string::npos) << part << "\nis not in\n" << report;
  }
  EXPECT_EQ(Count(paths().data_db, "SELECT value FROM config_table WHERE key = 'version'"), 4150);
}

TEST_F(CtlTest, RunReportsAFailedUpgrade) {
  ASSERT_EQ(Run({"sample", volume().c_str()}), 0);
  std::filesystem::remove_all(paths().sync_folder + "/delta");
  EXPECT_EQ(Run({"run", volume().c_str()}), 1);
  EXPECT_NE(out_.str().find("Status: upgradefail"), std::string::npos) << out_.str();
  EXPECT_NE(out_.str().find("failed to create empty file"), std::string::npos) << out_.str();
}

class SampleVersionTest : public CtlTest, public testing::WithParamInterface<const char*> {};

TEST_P(SampleVersionTest, SampleStartsAtThatVersionAndRunEndsDone) {
  ASSERT_EQ(Run({"sample", volume().c_str(), "--version", GetParam()}), 0) << err_.str();
  for (const std::string& database : {paths().data_db, paths().user_db, paths().client_db}) {
    EXPECT_EQ(Count(database, "SELECT value FROM config_table WHERE key = 'version'"), std::atoi(GetParam()));
  }
  ASSERT_EQ(Run({"run", volume().c_str()}), 0) << out_.str();
}

INSTANTIATE_TEST_SUITE_P(StartVersions, SampleVersionTest,
                         testing::Values("2603", "3004", "3200", "3300", "3400", "3450", "4000", "4060",
                                         "4100", "4150"));

}  // namespace
