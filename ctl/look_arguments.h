// What all commands that look at a volume are told.
#pragma once

#include <memory>
#include <string>

#include "ctl/arguments.h"
#include "platform/system_paths.h"

namespace ctl {

struct LookArguments {
  std::string volume;
  std::string state;  // the folder below which the package's state files lie; empty: the machine's own
  bool is_json = false;
};

// Adds them to a command, which fills them in.
[[nodiscard]] std::shared_ptr<LookArguments> AddLookArguments(Arguments& command);

[[nodiscard]] platform::SystemPaths SystemOf(const LookArguments& arguments);

// The folder of a volume with a package on it, links resolved: one that holds @stratofolder and that this
// process may look into. Returns 0, or -1 with the reason in `error`.
[[nodiscard]] int FindPackage(const std::string& argument, std::string& volume, std::string& error);

}  // namespace ctl
