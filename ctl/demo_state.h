// The package's state files of a run in a folder, so that the run finds what it expects of an appliance.
#pragma once

#include <string>

#include "ctl/made_folders.h"
#include "platform/state_files.h"
#include "platform/system_paths.h"

namespace ctl {

// Where `updater-ctl` keeps the state of runs on a volume.
[[nodiscard]] std::string DefaultStateFolder(const std::string& volume);

// Makes the folders of `paths` and puts the package into the state in which an upgrade is started: enabled,
// status "initializing". Returns 0, or -1 with the reason in `error`. What was made is for `made` to take
// back.
[[nodiscard]] int PrepareState(const platform::SystemPaths& paths, platform::StateFiles& state_files,
                               MadeFolders& made, std::string& error);

}  // namespace ctl
