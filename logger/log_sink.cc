#include "logger/log_sink.h"

#include <syslog.h>

#include <algorithm>
#include <regex>

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

void RecordingSink::Write(int priority, std::string_view text) {
  lines_.push_back({priority, std::string(text)});
}

std::vector<std::string> RecordingSink::Texts() const {
  // Only the heads carry source lines; numbers in the rest of a message belong to the message.
  static const std::regex head(
      R"(^(Strato Folder Updater|\[[A-Z]+\] [a-z0-9/-]+)\([0-9]+\)|^(updater-svr):[0-9]+ )");
  std::vector<std::string> texts;
  texts.reserve(lines_.size());
  for (const Line& line : lines_) {
    std::smatch match;
    if (!std::regex_search(line.text, match, head)) {
      texts.push_back(line.text);
    } else if (match[1].matched) {
      texts.push_back(match[1].str() + "(N)" + match.suffix().str());
    } else {
      texts.push_back(match[2].str() + ":N " + match.suffix().str());
    }
  }
  return texts;
}

int RecordingSink::Count(std::string_view text) const {
  const std::vector<std::string> texts = Texts();
  return static_cast<int>(std::count(texts.begin(), texts.end(), text));
}

}  // namespace logger
