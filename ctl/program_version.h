// The version of the program, which is that of the databases with its digits apart: 4150 is 4.1.50.
#pragma once

#include <string>

#include "package/layout.h"

namespace ctl {

[[nodiscard]] inline std::string ProgramVersion() {
  constexpr int kVersion = package::kCurrentVersion;
  return std::to_string(kVersion / 1000) + "." + std::to_string(kVersion / 100 % 10) + "." +
         std::to_string(kVersion % 100);
}

}  // namespace ctl
