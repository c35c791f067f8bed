// The command line of updater-ctl.
#pragma once

#include <iosfwd>

namespace ctl {

// Where a command writes: its report, and why it failed.
struct Streams {
  std::ostream& out;
  std::ostream& err;
};

// Runs the command that the arguments (the program's name first) ask for. Returns the program's exit status:
// 0 for success.
[[nodiscard]] int RunCommandLine(int argc, const char* const* argv, const Streams& streams);

}  // namespace ctl
