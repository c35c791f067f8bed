// The commands of updater-ctl, each defined in a file of its own.
#pragma once

#include <functional>

#include "ctl/arguments.h"
#include "ctl/streams.h"

namespace ctl {

// What a command does once its arguments are parsed; returns the exit status.
using Action = std::function<int()>;

// A command's definition: adds its arguments to `command` and returns what it does with them.
using Definition = Action (*)(Arguments& command, const Streams& streams);

[[nodiscard]] Action DefineStatus(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefineCheck(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefinePlan(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefineRehearse(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefineVerify(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefineSave(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefineRestore(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefineDiff(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefineSample(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefineRun(Arguments& command, const Streams& streams);
[[nodiscard]] Action DefineReport(Arguments& command, const Streams& streams);

}  // namespace ctl
