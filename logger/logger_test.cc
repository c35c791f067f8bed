#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "logger/component_log.h"
#include "logger/log_sink.h"
#include "logger/recording_sink.h"
#include "logger/updater_log.h"

namespace {

constexpr logger::Component kComponent = {"user_mgr_debug", "user-mgr"};

// Sets the log up from a file with that text; the file's name is this process's own, for tests run side by
// side.
void SetUpFrom(const std::string& text) {
  const std::string path = ::testing::TempDir() + "/syncfolder.debug-" + std::to_string(getpid());
  std::ofstream(path, std::ios::binary) << text;
  logger::SetUpComponentLog(path);
  std::filesystem::remove(path);
}

bool Logs(logger::Level level) { return logger::IsLogged(kComponent, level); }

TEST(Format, TakesEveryConversionAndKeepsPercentSignsOfArguments) {
  const std::string path = "/volume1/100%s %n";
  EXPECT_EQ(logger::FormatText("%s|%d|%u|%llu|%llx|%zu|%%", path, -1, 2U, ~0ULL, 255ULL, path.size()),
            "/volume1/100%s %n|-1|2|18446744073709551615|ff|17|%");
  EXPECT_EQ(logger::FormatText("100%%"), "100%");
}

TEST(UpdaterLog, CarriesTheLineThatLogsAndStopsAtTheFirstFailure) {
  logger::RecordingSink sink;
  const logger::ScopedSink scope(sink);
  logger::UpdaterLog("failed to attach database\n");
  const int line = __LINE__ - 1;
  EXPECT_FALSE(logger::Succeeded(0, "first %d\n", 1) && logger::Succeeded(-1, "second %d\n", 2) &&
               logger::Succeeded(-1, "third %d\n", 3));
  ASSERT_EQ(sink.lines().size(), 2U);
  EXPECT_EQ(sink.lines()[0].text,
            "Strato Folder Updater(" + std::to_string(line) + "): failed to attach database\n");
  EXPECT_EQ(sink.lines()[0].priority, LOG_ERR);
  EXPECT_EQ(sink.Texts()[1], "Strato Folder Updater(N): second 2\n");
}

TEST(ComponentLog, WritesLevelSourceAndLineAtThePriorityOfTheLevel) {
  SetUpFrom("user_mgr_debug=debug\n");
  logger::RecordingSink sink;
  const logger::ScopedSink scope(sink);
  logger::ComponentError(kComponent, "fail to set %s", "100%s");
  logger::ComponentLog(kComponent, logger::Level::kWarning, "w");
  logger::ComponentLog(kComponent, logger::Level::kDebug, "d");
  EXPECT_EQ(sink.Texts(), (std::vector<std::string>{"[ERROR] user-mgr(N): fail to set 100%s",
                                                    "[WARNING] user-mgr(N): w", "[DEBUG] user-mgr(N): d"}));
  EXPECT_EQ(sink.lines()[0].priority, LOG_ERR);
  EXPECT_EQ(sink.lines()[1].priority, LOG_WARNING);
  EXPECT_EQ(sink.lines()[2].priority, LOG_DEBUG);
}

TEST(ComponentLog, ReadsLevelsPerComponentWithAndWithoutQuotes) {
  SetUpFrom("# user_mgr_debug=debug\nfile_op_debug=debug\n user_mgr_debug = \"error\" \r\n");
  EXPECT_TRUE(Logs(logger::Level::kError));
  EXPECT_FALSE(Logs(logger::Level::kWarning));
}

TEST(ComponentLog, KeepsTheDefaultForAMissingDamagedOrForeignFile) {
  const auto is_default = [] { return Logs(logger::Level::kInfo) && !Logs(logger::Level::kDebug); };
  logger::SetUpComponentLog("/nonexistent/syncfolder.debug");
  EXPECT_TRUE(is_default());
  SetUpFrom(std::string("\0\xff=\n=\nuser_mgr_debug\nuser_mgr_debug=loud\n", 40));
  EXPECT_TRUE(is_default());
  logger::SetUpComponentLog(::testing::TempDir());
  EXPECT_TRUE(is_default());
}

}  // namespace
