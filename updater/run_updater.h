// One run of the program, from its arguments to its outcome.
#pragma once

#include <span>

#include "updater/run_dependencies.h"

namespace updater {

// Brings the databases of one volume to the version that this package expects. `arguments` are those of the
// command line, without the program's name: the volume path and, optionally, "--dont-skip".
//
// The outcome is the service status: "done", "upgradefail" or "dbnewer". Live databases are replaced only
// after every updater has succeeded; after a failure before that they are as they were, and the working
// copies made so far stay until the next run replaces them. The upgrading mark is removed at the end.
//
// Returns -1 for a wrong number of arguments (nothing else happens then), 0 otherwise, whatever the outcome.
[[nodiscard]] int RunUpdater(std::span<const char* const> arguments, const RunDependencies& dependencies);

}  // namespace updater
