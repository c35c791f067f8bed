#include "logger/log_sink.h"

#include <syslog.h>

namespace logger {
namespace {

class SystemLogSink : public LogSink {
 public:
  void Write(int priority, std::string_view text) override {
    // Never the text as the format: paths and names in it may hold percent signs.
    syslog(priority, "%.*s", static_cast<int>(text.size()), text.data());
  }
};

LogSink*& CurrentSink() {
  static SystemLogSink system_log;
  static LogSink* current = &system_log;
  return current;
}

}  // namespace

void WriteToSink(int priority, std::string_view text) { CurrentSink()->Write(priority, text); }

ScopedSink::ScopedSink(LogSink& sink) : before_(CurrentSink()) { CurrentSink() = &sink; }
ScopedSink::~ScopedSink() { CurrentSink() = before_; }

}  // namespace logger
