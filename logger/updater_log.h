// The log lines of the updaters: "Strato Folder Updater(123): text", in the system log at LOG_ERR, where the
// number is the line of source that logs.
#pragma once

#include "logger/log_sink.h"

namespace logger {

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

inline void WriteUpdaterLine(int source_line, const std::string& text) {
  SystemLog<int, std::string>("Strato Folder Updater(%d): %s", source_line, text);
}

// Formats and writes one line. `format` is the text behind the head.
template <typename... Args>
void UpdaterLog(const PrintfFormat<Args...>& format, const Args&... args) {
  WriteUpdaterLine(format.line(), FormatText<Args...>(format, args...));
}

// True for a result that is no failure (0 or above); logs `failure` for a negative one. Operations that run
// several steps chain it with &&, so that the first failure ends them with its own line.
template <typename... Args>
[[nodiscard]] bool Succeeded(int result, const PrintfFormat<Args...>& failure, const Args&... args) {
  if (result < 0) UpdaterLog<Args...>(failure, args...);
  return result >= 0;
}

}  // namespace logger
