// Names of files, which may hold any bytes, as plain words.
#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

namespace base {

// What could be taken for something else in a line is written as "%" and two digits.
[[nodiscard]] inline std::string Escape(std::string_view text) {
  constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./@";
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  std::string escaped;
  for (const char character : text) {
    if (kPlain.find(character) != std::string_view::npos) {
      escaped += character;
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    escaped.append({'%', kHexDigits[byte >> 4U], kHexDigits[byte & 15U]});
  }
  return escaped;
}

// Nothing for a text that Escape() does not write.
[[nodiscard]] inline std::optional<std::string> Unescape(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    const bool is_escape = text.front() == '%';
    unsigned byte = static_cast<unsigned char>(text.front());
    if (is_escape) {
      if (text.size() < 3) return std::nullopt;
      const auto [end, error] = std::from_chars(text.data() + 1, text.data() + 3, byte, 16);
      if (error != std::errc{} || end != text.data() + 3) return std::nullopt;
    }
    plain += static_cast<char>(byte);
    text.remove_prefix(is_escape ? 3 : 1);
  }
  return plain;
}

}  // namespace base
