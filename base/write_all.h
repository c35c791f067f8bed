// Writing a text whole, however many calls it takes.
#pragma once

#include <unistd.h>

#include <string_view>

#include "base/errno.h"
#include "base/retry.h"

namespace base {

// EIO for a write that takes nothing and gives no reason.
[[nodiscard]] inline Errno WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = RetryInterrupted([&] { return ::write(file, text.data(), text.size()); });
    if (written < 0) return Errno::Last();
    if (written == 0) return Errno(EIO);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return {};
}

}  // namespace base
