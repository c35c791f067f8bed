// The name of this folder's log messages, and the check of a step that logs under it.
#pragma once

#include "logger/component_log.h"

namespace db {

inline constexpr logger::Component kComponent = {"db_debug", "db"};

// Passes on whether a step went well, and logs `failure` at level error if not.
template <typename Outcome, typename... Args>
[[nodiscard]] bool Check(const Outcome& outcome, const logger::PrintfFormat<Args...>& failure,
                         const Args&... args) {
  return logger::CheckOrLog<Outcome, Args...>(kComponent, outcome, failure, args...);
}

}  // namespace db
