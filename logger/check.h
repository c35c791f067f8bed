// Steps that read as a sentence:
//
//   return Check(First(), "first failed\n") && Check(Second(), "second failed\n");
#pragma once

#include <string>

#include "logger/format.h"

namespace logger {

// The three ways of saying that something went well: a described operation with a number that is not
// negative, a step with true, and everything that knows more about its failures with ok().
[[nodiscard]] constexpr bool IsSuccess(bool outcome) { return outcome; }
[[nodiscard]] constexpr bool IsSuccess(int outcome) { return outcome >= 0; }
template <typename Outcome>
[[nodiscard]] constexpr bool IsSuccess(const Outcome& outcome) {
  return outcome.ok();
}

// What a described operation returns.
[[nodiscard]] constexpr int ToResult(bool ok) { return ok ? 0 : -1; }

// Passes on whether a step went well. If not, `write` gets the formatted line and the source line on which
// the format stands. Every log of the program has a Check() of its own that calls this one.
template <typename Write, typename Outcome, typename... Args>
[[nodiscard]] bool CheckOr(const Write& write, const Outcome& outcome, const PrintfFormat<Args...>& failure,
                           const Args&... args) {
  if (IsSuccess(outcome)) return true;
  write(failure.line(), FormatText<Args...>(failure, args...));
  return false;
}

}  // namespace logger
