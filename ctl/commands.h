// The commands of updater-ctl, each defined in a file of its own.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "ctl/streams.h"

namespace ctl {

// What a command does once its arguments are parsed; returns the exit status.
using Action = std::function<int()>;

// A command's definition: adds its arguments to `command` and returns what it does with them.
using Definition = Action (*)(CLI::App& command, const Streams& streams);

[[nodiscard]] Action DefineStatus(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefineCheck(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefinePlan(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefineRehearse(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefineVerify(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefineSave(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefineRestore(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefineDiff(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefineSample(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefineRun(CLI::App& command, const Streams& streams);
[[nodiscard]] Action DefineReport(CLI::App& command, const Streams& streams);

}  // namespace ctl
