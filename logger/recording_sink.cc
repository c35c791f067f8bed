#include "logger/recording_sink.h"

#include <algorithm>
#include <optional>

namespace logger {
namespace {

constexpr std::string_view kDigits = "0123456789";

// What stands before the source line in a head, for the three kinds of heads: an updater's, a component's
// (which ends in "(<line>)"), and the driver's (":<line> "). Nothing for a message without a head.
std::optional<std::size_t> FindSourceLine(std::string_view text) {
  constexpr std::string_view kUpdaterHead = "Strato Folder Updater(";
  constexpr std::string_view kDriverHead = "updater-svr:";
  if (text.starts_with(kUpdaterHead)) return kUpdaterHead.size();
  if (text.starts_with(kDriverHead)) return kDriverHead.size();
  if (!text.starts_with('[')) return std::nullopt;
  const std::size_t parenthesis = text.find('(');
  if (parenthesis == std::string_view::npos) return std::nullopt;
  return parenthesis + 1;
}

// Only the heads carry source lines; numbers in the rest of a message belong to the message.
std::string WithoutSourceLine(const std::string& text) {
  const std::optional<std::size_t> begin = FindSourceLine(text);
  if (!begin) return text;
  const std::size_t end = text.find_first_not_of(kDigits, *begin);
  if (end == *begin || end == std::string::npos) return text;
  return text.substr(0, *begin) + "N" + text.substr(end);
}

}  // namespace

void RecordingSink::Write(int priority, std::string_view text) {
  lines_.push_back({priority, std::string(text)});
}

std::vector<std::string> RecordingSink::Texts() const {
  std::vector<std::string> texts;
  texts.reserve(lines_.size());
  for (const Line& line : lines_) texts.push_back(WithoutSourceLine(line.text));
  return texts;
}

int RecordingSink::Count(std::string_view text) const {
  const std::vector<std::string> texts = Texts();
  return static_cast<int>(std::count(texts.begin(), texts.end(), text));
}

}  // namespace logger
