// Writing a text whole, however many calls it takes.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "base/retry.h"

namespace base {

// Returns false with errno set; errno is 0 for a write that took nothing.
[[nodiscard]] inline bool WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    errno = 0;
    const ssize_t written = RetryInterrupted([&] { return ::write(file, text.data(), text.size()); });
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace base
