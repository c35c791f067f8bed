// The text form of a key/value file: lines `key="value"`.
//
// Reading accepts missing quotes and blanks around the equals sign; of several lines with the same key the
// first one counts. There are no escapes, so a value cannot hold a quote or a line feed. Lines that are not
// in this form, comments among them, belong to somebody else and are left alone.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform::host {

[[nodiscard]] std::optional<std::string_view> FindValue(std::string_view text, std::string_view key);

// True when a line with this key and value can be written and read back.
[[nodiscard]] bool IsKeyValuePair(std::string_view key, std::string_view value);

// Puts the value in place of the old one, or a new line at the end.
void SetValue(std::string& text, std::string_view key, std::string_view value);

}  // namespace platform::host
