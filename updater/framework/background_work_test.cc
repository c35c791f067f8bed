#include "updater/framework/background_work.h"

#include <chrono>
#include <thread>

#include "tests/support/logged_test.h"

namespace {

using BackgroundWorkTest = tests::LoggedTest;

TEST_F(BackgroundWorkTest, TellsInOrderAndStopsAtTheFirstFailure) {
  const auto work = [](std::size_t i) {
    if (i == 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the others are done before it
    logger::SystemLog("number %d\n", static_cast<int>(i));
    return i != 3;
  };
  EXPECT_TRUE(updater::ForEachInBackground(3, work));
  EXPECT_THAT(sink_.Texts(), testing::ElementsAre("number 0\n", "number 1\n", "number 2\n"));
  EXPECT_FALSE(updater::ForEachInBackground(40, work));
  EXPECT_EQ(sink_.Texts().back(), "number 3\n");
  EXPECT_TRUE(updater::ForEachInBackground(0, work));
  EXPECT_TRUE(updater::BackgroundWork().Finish());
}

}  // namespace
