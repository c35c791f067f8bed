// Whether a package is at rest, so that all of its databases can be read, or replaced, as one set.
#pragma once

#include <string>

#include "package/layout.h"
#include "platform/system_paths.h"

namespace ctl {

// Returns 0, or -1 with the reason in `error`: an upgrade runs, the package's daemons do, or somebody has a
// database in use. Only looks.
[[nodiscard]] int CheckNobodyWorks(const package::VolumePaths& paths, const platform::SystemPaths& system,
                                   std::string& error);

// The text that identifies the volume; empty where its file system has none.
[[nodiscard]] std::string ReadVolumeUuid(const std::string& volume);

}  // namespace ctl
