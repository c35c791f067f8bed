#include <gtest/gtest.h>
#include <syslog.h>

#include "logger/component_log.h"
#include "logger/log_sink.h"
#include "tests/support/recording_sink.h"
#include "tests/support/temporary_folder.h"

namespace {

constexpr logger::Component kComponent = {"user_mgr_debug", "user-mgr"};

TEST(Format, TakesEveryConversionAndKeepsPercentSignsOfArguments) {
  const std::string path = "/volume1/100%s %n";
  EXPECT_EQ(logger::FormatText("%s|%d|%u|%llu|%llx|%zu|%%", path, -1, 2U, ~0ULL, 255ULL, path.size()),
            "/volume1/100%s %n|-1|2|18446744073709551615|ff|17|%");
}

TEST(CutInTheMiddle, KeepsBothEndsAndWholeCharacters) {
  const std::tuple<const char*, std::size_t, const char*> cases[] = {
      {"exactly ten", 11, "exactly ten"},
      {"statement: reason", 15, "stat [...] ason"},
      {"\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac", 17, "\u20ac [...] \u20ac"},
      {"\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80", 11, " [...] "}};
  for (const auto& [text, limit, cut] : cases) EXPECT_EQ(logger::CutInTheMiddle(text, limit), cut);
}

TEST(ComponentLog, WritesTheLevelsOfItsFileAndTheDefaultOnesWithoutOne) {
  const tests::TemporaryFolder folder;
  const auto priorities = [](const std::string& file) {
    logger::SetUpComponentLog(file);
    tests::RecordingSink sink;
    const logger::ScopedSink scope(sink);
    logger::ComponentError(kComponent, "fail to set %s", "100%s");
    EXPECT_EQ(sink.Texts()[0], "[ERROR] user-mgr(N): fail to set 100%s");
    for (const auto level : {logger::Level::kWarning, logger::Level::kInfo, logger::Level::kDebug}) {
      logger::ComponentLog(kComponent, level, "text");
    }
    std::vector<int> found;
    for (const auto& line : sink.lines()) found.push_back(line.priority);
    return found;
  };
  const std::vector<int> by_default = {LOG_ERR, LOG_WARNING, LOG_INFO};
  EXPECT_EQ(priorities(folder.Write("debug", "user_mgr_debug=debug\n")),
            (std::vector<int>{LOG_ERR, LOG_WARNING, LOG_INFO, LOG_DEBUG}));
  EXPECT_EQ(priorities(folder.Write("quoted",
                                    "# user_mgr_debug=debug\nfile_op_debug=debug\n"
                                    " user_mgr_debug = \"error\" \r\n")),
            std::vector<int>{LOG_ERR});
  const std::string damaged("\0\xff=\n=\nuser_mgr_debug\nuser_mgr_debug=loud\n", 40);
  EXPECT_EQ(priorities(folder.Write("damaged", damaged)), by_default);
  EXPECT_EQ(priorities(folder / "missing"), by_default);
  EXPECT_EQ(priorities(folder.path()), by_default);
}

}  // namespace
