#include "platform/host/key_value_text.h"

#include "base/text.h"

namespace platform::host {
namespace {

using namespace std::string_view_literals;

// The first line with the key, without its line feed; a null view when there is none.
std::string_view FindLine(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    const std::string_view line = base::TakeUntil(text, "\n");
    if (const auto pair = base::SplitKeyValue(line); pair && pair->key == key) return line;
  }
  return {};
}

}  // namespace

std::optional<std::string_view> FindValue(std::string_view text, std::string_view key) {
  const auto line = base::SplitKeyValue(FindLine(text, key));
  if (!line) return std::nullopt;
  std::string_view value = line->value;
  if (value.starts_with('"')) {
    value.remove_prefix(1);
    value = value.substr(0, value.find('"'));
  }
  return value.substr(0, value.find('\0'));
}

bool IsKeyValuePair(std::string_view key, std::string_view value) {
  return !key.empty() && key == base::Trim(key) && key.front() != '#' &&
         key.find_first_of("=\"\n\0"sv) == std::string_view::npos &&
         value.find_first_of("\"\n\0"sv) == std::string_view::npos;
}

void SetValue(std::string& text, std::string_view key, std::string_view value) {
  const std::string new_line = std::string(key) + "=\"" + std::string(value) + '"';
  if (const std::string_view line = FindLine(text, key); line.data() != nullptr) {
    text.replace(static_cast<std::size_t>(line.data() - text.data()), line.size(), new_line);
    return;
  }
  base::AppendLine(text, new_line);
}

}  // namespace platform::host
