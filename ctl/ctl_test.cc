#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "ctl/command_line.h"
#include "db-util/database.h"
#include "db-util/query.h"
#include "tests/support/temporary_folder.h"
#include "updater/run_paths.h"

namespace {

using ::testing::HasSubstr;

class CtlTest : public testing::Test {
 protected:
  int Run(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "updater-ctl");
    out_.str("");
    return ctl::RunCommandLine(static_cast<int>(arguments.size()), arguments.data(), {out_, err_});
  }
  static int Query(const std::string& database, const std::string& query) {
    db_util::Database db;
    int value = -1;
    EXPECT_EQ(db_util::OpenQuietly(database, db, db_util::OpenMode::kReadWrite), SQLITE_OK) << database;
    EXPECT_TRUE(db_util::QueryInt(db.get(), query, value).ok()) << query;
    return value;
  }

  tests::TemporaryFolder folder_;
  std::string volume_ = folder_ / "volume";
  updater::RunPaths paths_{volume_};
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(CtlTest, SampleHoldsThePromisedContentAndTouchesNothingThatIsThere) {
  ASSERT_EQ(Run({"sample", volume_.c_str(), "--nodes", "100", "--versions", "250", "--views", "7"}), 0);
  EXPECT_EQ(Query(paths_.user_db, "SELECT count(DISTINCT view_id) FROM user_table"), 7);
  EXPECT_EQ(Query(paths_.data_db, "SELECT count(*) FROM version_table"), 250);
  const auto count_nodes = [&] { return Query(paths_.data_db, "SELECT count(*) FROM node_table"); };
  EXPECT_EQ(count_nodes(), 100);
  EXPECT_EQ(Run({"sample", volume_.c_str(), "--nodes", "10"}), 1);
  EXPECT_THAT(err_.str(), HasSubstr("exists already"));
  EXPECT_EQ(count_nodes(), 100);
}

TEST_F(CtlTest, RunShowsTheUpgradeOfEveryVersionOrItsFailure) {
  for (const char* version :
       {"4100", "4060", "4000", "3450", "3400", "3300", "3200", "3004", "2603", "2577"}) {
    std::filesystem::remove_all(volume_);
    ASSERT_EQ(Run({"sample", volume_.c_str(), "--version", version}), 0) << err_.str();
    ASSERT_EQ(Run({"run", volume_.c_str()}), 0) << version << out_.str();
  }
  for (const char* part : {"(master, 4100)   -> (master, 4150)", "view databases: 5 (1, 2, 3, 5, 6)\n",
                           "view 6         (master, 4150)", "removed left.the.company", "Status: done"}) {
    EXPECT_THAT(out_.str(), HasSubstr(part));
  }
  std::filesystem::remove_all(volume_);
  ASSERT_EQ(Run({"sample", volume_.c_str()}), 0);
  std::filesystem::remove_all(paths_.sync_folder + "/delta");
  EXPECT_EQ(Run({"run", volume_.c_str()}), 1);
  EXPECT_THAT(out_.str(), HasSubstr("failed to create empty file"));
  EXPECT_EQ(Run({"sample", (volume_ + "2").c_str(), "--version", "3100"}), 1);
  EXPECT_THAT(err_.str(), HasSubstr("no updater leads to version 3100"));
}

}  // namespace
