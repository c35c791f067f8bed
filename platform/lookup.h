// The result of asking the machine for one thing by name or number.
#pragma once

namespace platform {

// "Not there" and "could not ask" are different answers: whoever removes what is gone acts on the first only.
enum class Lookup : int { kFound = 0, kNotFound = 1, kFailed = -1 };

}  // namespace platform
