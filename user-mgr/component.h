// The name of this folder's log messages, and how its steps become sentences and results.
#pragma once

#include "logger/component_log.h"

namespace user_mgr {

inline constexpr logger::Component kComponent = {"user_mgr_debug", "user-mgr"};

// Turns the outcome of an operation's steps into the operation's integer.
using logger::ToResult;

// Passes on whether a step went well, and logs `failure` at level error if not.
template <typename Outcome, typename... Args>
[[nodiscard]] bool Check(const Outcome& outcome, const logger::PrintfFormat<Args...>& failure,
                         const Args&... args) {
  return logger::CheckOrLog<Outcome, Args...>(kComponent, outcome, failure, args...);
}

}  // namespace user_mgr
