// The result of asking the machine for one thing by name or number.
#pragma once

namespace platform {

// "Not there" and "could not ask" are different answers, because only the first lets a user be removed.
enum class Lookup : int { kFound = 0, kNotFound = 1, kFailed = -1 };

}  // namespace platform
