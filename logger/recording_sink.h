// A sink that remembers, for programs that show a run's log, and for tests.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "logger/log_sink.h"

namespace logger {

class RecordingSink : public LogSink {
 public:
  struct Line {
    int priority;
    std::string text;
  };

  void Write(int priority, std::string_view text) override {
    lines_.push_back({priority, std::string(text)});
  }

  [[nodiscard]] const std::vector<Line>& lines() const { return lines_; }

 protected:
  std::vector<Line> lines_;
};

}  // namespace logger
