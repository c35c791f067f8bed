// The command line of updater-ctl.
#pragma once

#include "ctl/streams.h"

namespace ctl {

// Runs the command that the arguments (the program's name first) ask for. Returns the program's exit status.
[[nodiscard]] int RunCommandLine(int argc, const char* const* argv, const Streams& streams);

}  // namespace ctl
