// The command line of updater-ctl.
#pragma once

#include <iosfwd>

namespace ctl {

// Where a command writes: its report, and why it failed.
struct Streams {
  std::ostream& out;
  std::ostream& err;
};

// Exit statuses besides 0 for success.
inline constexpr int kFailed = 1;   // a sample could not be made, or a run did not end in "done"
inline constexpr int kRefused = 2;  // the arguments or the folder of a run were refused; nothing was changed

// Runs the command that the arguments (the program's name first) ask for. Returns the program's exit status.
[[nodiscard]] int RunCommandLine(int argc, const char* const* argv, const Streams& streams);

}  // namespace ctl
