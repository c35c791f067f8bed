// System calls that may have to be made again. `call` returns a negative value and sets errno on failure.
#pragma once

#include <poll.h>

#include <cerrno>

namespace base {

// Repeats a call that a signal interrupted.
template <typename Call>
[[nodiscard]] auto RetryInterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// Repeats a call also while it ends in EAGAIN. It gives up after about ten seconds, so that a file system
// that stays busy cannot hold an upgrade for ever; the result is then the last failure.
template <typename Call>
[[nodiscard]] auto RetryBusy(Call call) {
  constexpr int kMaxBusy = 1000;
  constexpr int kPauseMilliseconds = 10;
  auto result = RetryInterrupted(call);
  for (int busy = 0; result < 0 && errno == EAGAIN && busy < kMaxBusy; ++busy) {
    (void)::poll(nullptr, 0, kPauseMilliseconds);  // a signal may cut the pause short
    errno = EAGAIN;
    result = RetryInterrupted(call);
  }
  return result;
}

}  // namespace base
