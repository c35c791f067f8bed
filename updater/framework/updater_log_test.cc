#include "updater/framework/updater_log.h"

#include "tests/support/logged_test.h"

namespace {

using UpdaterLog = tests::LoggedTest;

TEST_F(UpdaterLog, CarriesTheLineThatLogsAndStopsAtTheFirstFailure) {
  updater::UpdaterLog("failed to attach database\n");
  const int line = __LINE__ - 1;
  EXPECT_FALSE(updater::Check(1, "first %d\n", 1) && updater::Check(true, "true\n") &&
               updater::Check(-1, "second %d\n", 2) && updater::Check(false, "third %d\n", 3));
  ASSERT_EQ(sink_.lines().size(), 2U);
  EXPECT_EQ(sink_.lines()[0].text,
            "Strato Folder Updater(" + std::to_string(line) + "): failed to attach database\n");
  EXPECT_EQ(sink_.lines()[0].priority, LOG_ERR);
  EXPECT_EQ(sink_.Texts()[1], "Strato Folder Updater(N): second 2\n");
}

}  // namespace
