// How the operations of this folder fail.
#pragma once

#include <string>
#include <utility>

namespace ctl {

// Returns -1, with the reason in `error`.
[[nodiscard]] inline int Refuse(std::string& error, std::string reason) {
  error = std::move(reason);
  return -1;
}

}  // namespace ctl
