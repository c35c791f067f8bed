// System calls that may be told to come back.
#pragma once

#include <poll.h>

#include <cerrno>

namespace platform::host {

// Runs `call` until it does not end in EINTR or EAGAIN. A file system that stays busy is given up after about
// ten seconds, so that an upgrade cannot hang in it for ever; the result is then the last failure.
template <typename Call>
[[nodiscard]] auto RetryInterrupted(Call call) {
  constexpr int kMaxBusy = 1000;
  constexpr int kPauseMilliseconds = 10;
  for (int busy = 0;; ++busy) {
    const auto result = call();
    if (result >= 0 || (errno != EINTR && errno != EAGAIN) || busy == kMaxBusy) return result;
    if (errno == EAGAIN) {
      (void)::poll(nullptr, 0, kPauseMilliseconds);  // only a pause; cut short is fine
      errno = EAGAIN;
    }
  }
}

}  // namespace platform::host
