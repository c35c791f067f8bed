// Lines of system logs, taken apart.
#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

// A message with what the log has put in front of it. Understood are the traditional and the ISO time, with
// and without host, priority and process id, RFC 5424, the short and JSON forms of the journal, and nothing
// in front at all.
struct LogLine {
  enum class Source {
    kUpdater,  // written by updater-svr
    kOther,    // by somebody else: the kernel, the log itself
    kBare,     // nothing tells; as "updater-ctl run --log" prints them
  };

  Source source = Source::kBare;
  std::int64_t process = 0;       // 0 where the log does not tell
  std::string time;               // as it stands in the log, or UTC; empty where there is none
  std::optional<double> seconds;  // the same as a number; of a log without years, of a year of its own
  std::string text;               // the message; what is too long is cut in the middle
};

[[nodiscard]] LogLine ParseLogLine(const std::string& line);

// From the first to the second, both as LogLine::seconds has them. A log without years may pass New Year.
[[nodiscard]] double SecondsBetween(double first, double second);

// Reads a log from its beginning to its end. Whatever is in it, only a few MiB are held.
class LogReader {
 public:
  explicit LogReader(std::istream& in) : in_(in) {}

  // The next message, with the lines of the log that go on with it. False at the end.
  [[nodiscard]] bool Next(LogLine& message);
  // After the end: it came because the input could not be read.
  [[nodiscard]] bool has_failed() const { return in_.bad(); }

 private:
  bool ReadLine(std::string& line);
  bool Refill();

  std::istream& in_;
  std::string buffer_;
  std::string_view rest_;           // of the buffer
  bool is_headed_ = false;          // lines of this log have a head, so one without goes on with another
  std::optional<LogLine> pending_;  // read already, and no part of the message before
};

}  // namespace ctl
