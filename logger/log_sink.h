// Where every log line of the program goes.
//
// Every thread has one sink. It is the system log unless another one is installed with a ScopedSink: tests
// and the companion command install theirs, and who works in the background one that holds its lines back.
#pragma once

#include <syslog.h>

#include <string>
#include <string_view>

#include "base/interface.h"
#include "logger/check.h"
#include "logger/format.h"

namespace logger {

class LogSink : public base::Interface {
 public:
  // `priority` is one of syslog's (LOG_ERR ...). `text` is one message as written by the caller, with its
  // line feed if it has one. Returns nothing, because nobody could be told that the log cannot be written.
  // The system log's sink cuts a message that is longer than its socket takes in the middle.
  virtual void Write(int priority, std::string_view text) = 0;
};

// The text if it is no longer than `limit` bytes, which hold at least the mark; otherwise its beginning and
// its end, where the reason of a failure stands, with a mark in between. No UTF-8 character is cut in two.
[[nodiscard]] std::string CutInTheMiddle(std::string_view text, std::size_t limit);

// A line shows no more than this of a stored value, because a damaged one may have any length.
inline constexpr std::size_t kLongestShownValue = 100;

// Writes one already formatted message to the sink of the thread.
void WriteToSink(int priority, std::string_view text);

// Installs a sink for its own lifetime and puts the one before back. The sink is borrowed.
class ScopedSink {
 public:
  explicit ScopedSink(LogSink& sink);
  ~ScopedSink();
  ScopedSink(const ScopedSink&) = delete;
  ScopedSink& operator=(const ScopedSink&) = delete;

 private:
  LogSink* before_;
};

// Logs to the system log at LOG_ERR, which is the priority of all messages of the driver and the updaters.
template <typename... Args>
void SystemLog(const PrintfFormat<Args...>& format, const Args&... args) {
  WriteToSink(LOG_ERR, FormatText<Args...>(format, args...));
}

// Passes on whether a step went well, and logs `failure` to the system log if not.
template <typename Outcome, typename... Args>
[[nodiscard]] bool CheckOrLog(const Outcome& outcome, const PrintfFormat<Args...>& failure,
                              const Args&... args) {
  const auto write = [](int /*source_line*/, const std::string& text) { WriteToSink(LOG_ERR, text); };
  return CheckOr<decltype(write), Outcome, Args...>(write, outcome, failure, args...);
}

// The same for an operation on `path` that sets errno: the format takes the path, errno's text and its
// number.
[[nodiscard]] bool CheckErrno(int result, const PrintfFormat<std::string, std::string, int>& failure,
                              const std::string& path);

}  // namespace logger
