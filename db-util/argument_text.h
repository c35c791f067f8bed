// The arguments of functions that SQL statements call.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <string_view>

namespace db_util {

// An argument as text, its NULs included, valid as long as the argument; a NULL is empty text.
[[nodiscard]] inline std::string_view ArgumentText(sqlite3_value* argument) {
  const void* text = sqlite3_value_text(argument);  // first: this makes the text that is measured next
  const auto length = static_cast<std::size_t>(sqlite3_value_bytes(argument));
  return text == nullptr ? std::string_view() : std::string_view(static_cast<const char*>(text), length);
}

}  // namespace db_util
