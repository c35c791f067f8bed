#include <syslog.h>

#include "logger/component_log.h"
#include "logger/log_sink.h"
#include "tests/support/logged_test.h"

namespace {

constexpr logger::Component kComponent = {"user_mgr_debug", "user-mgr"};

TEST(CutInTheMiddle, KeepsBothEndsAndWholeCharacters) {
  const std::tuple<const char*, std::size_t, const char*> cases[] = {
      {"exactly ten", 11, "exactly ten"},
      {"statement: reason", 15, "stat [...] ason"},
      {"\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac", 17, "\u20ac [...] \u20ac"},
      {"\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80", 11, " [...] "}};
  for (const auto& [text, limit, cut] : cases) EXPECT_EQ(logger::CutInTheMiddle(text, limit), cut);
}

using ComponentLog = tests::LoggedTest;

TEST_F(ComponentLog, WritesTheLevelsOfItsFileAndTheDefaultOnesWithoutOne) {
  const auto priorities = [this](const std::string& file) {
    logger::SetUpComponentLog(file);
    sink_.Clear();
    logger::ComponentError(kComponent, "fail to set %s", "100%s");
    EXPECT_EQ(sink_.Texts()[0], "[ERROR] user-mgr(N): fail to set 100%s");
    for (const auto level : {logger::Level::kWarning, logger::Level::kInfo, logger::Level::kDebug}) {
      logger::ComponentLog(kComponent, level, "text");
    }
    std::vector<int> found;
    for (const auto& line : sink_.lines()) found.push_back(line.priority);
    return found;
  };
  const std::vector<int> by_default = {LOG_ERR, LOG_WARNING, LOG_INFO};
  EXPECT_EQ(priorities(folder_.Write("debug", "user_mgr_debug=debug\n")),
            (std::vector<int>{LOG_ERR, LOG_WARNING, LOG_INFO, LOG_DEBUG}));
  EXPECT_EQ(priorities(folder_.Write("quoted",
                                     "# user_mgr_debug=debug\nfile_op_debug=debug\n"
                                     " user_mgr_debug = \"error\" \r\n")),
            std::vector<int>{LOG_ERR});
  const std::string damaged("\0\xff=\n=\nuser_mgr_debug\nuser_mgr_debug=loud\n", 40);
  EXPECT_EQ(priorities(folder_.Write("damaged", damaged)), by_default);
  EXPECT_EQ(priorities(folder_ / "missing"), by_default);
  EXPECT_EQ(priorities(folder_.path()), by_default);
}

}  // namespace
