// Taking the lines of configuration files apart, and adding one.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace base {

inline constexpr std::string_view kBlanks = " \t\r\v\f";

// The text without the blanks at both ends.
[[nodiscard]] inline std::string_view Trim(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// Takes everything up to the first of `separators`, and that separator, off the front of `rest`.
[[nodiscard]] inline std::string_view TakeUntil(std::string_view& rest, std::string_view separators) {
  const std::string_view taken = rest.substr(0, rest.find_first_of(separators));
  rest.remove_prefix(taken.size() < rest.size() ? taken.size() + 1 : taken.size());
  return taken;
}

struct KeyValue {
  std::string_view key;
  std::string_view value;
};

// A line "key = value" taken apart at its first equals sign, without the blanks around both; nothing for a
// line without one.
[[nodiscard]] inline std::optional<KeyValue> SplitKeyValue(std::string_view line) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  return KeyValue{Trim(line.substr(0, equals)), Trim(line.substr(equals + 1))};
}

// Adds a line at the end, where the last line may lack its line feed.
inline void AppendLine(std::string& text, std::string_view line) {
  if (!text.empty() && text.back() != '\n') text += '\n';
  text.append(line) += '\n';
}

}  // namespace base
