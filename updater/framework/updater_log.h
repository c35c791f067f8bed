// The log lines of the updaters: "Strato Folder Updater(123): text", in the system log at LOG_ERR, where the
// number is the line of source that logs.
#pragma once

#include <string>

#include "logger/check.h"
#include "logger/log_sink.h"

namespace updater {

// Tells the log which updater is at work, "3200 to 3300", for its own lifetime.
class ScopedUpdaterName {
 public:
  explicit ScopedUpdaterName(std::string name);
  ~ScopedUpdaterName();
  ScopedUpdaterName(const ScopedUpdaterName&) = delete;
  ScopedUpdaterName& operator=(const ScopedUpdaterName&) = delete;
};

// The name of the updater at work; "no updater" between two of them.
[[nodiscard]] const std::string& UpdaterAtWork();

// Writes one line that is already formatted.
void WriteUpdaterLine(int source_line, const std::string& text);

// Formats and writes one line. `format` is the text behind the head.
template <typename... Args>
void UpdaterLog(const logger::PrintfFormat<Args...>& format, const Args&... args) {
  WriteUpdaterLine(format.line(), logger::FormatText<Args...>(format, args...));
}

// Passes on whether a step went well, and logs `failure` if not. Chained with &&, the first step that fails
// ends the chain with its own line.
template <typename Outcome, typename... Args>
[[nodiscard]] bool Check(const Outcome& outcome, const logger::PrintfFormat<Args...>& failure,
                         const Args&... args) {
  return logger::CheckOr<decltype(&WriteUpdaterLine), Outcome, Args...>(&WriteUpdaterLine, outcome, failure,
                                                                        args...);
}

}  // namespace updater
