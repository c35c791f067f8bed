// A sink that remembers: for tests that compare whole lines, and for programs that show a run's log.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "logger/log_sink.h"

namespace logger {

// Keeps every message in memory, for tests that compare whole lines.
class RecordingSink : public LogSink {
 public:
  struct Line {
    int priority;
    std::string text;
  };

  void Write(int priority, std::string_view text) override;

  [[nodiscard]] const std::vector<Line>& lines() const { return lines_; }
  // The texts with each source line number "(123)" behind a name or colon and number ":123 " replaced by
  // "(N)" and ":N ", so that a test may compare whole lines.
  [[nodiscard]] std::vector<std::string> Texts() const;
  // How many messages equal `text` after that replacement.
  [[nodiscard]] int Count(std::string_view text) const;
  void Clear() { lines_.clear(); }

 private:
  std::vector<Line> lines_;
};

}  // namespace logger
