// What an upgrade takes on the volume.
#pragma once

#include <optional>

#include "package/layout.h"

namespace updater {

// In bytes, on the volume of the sync folder.
struct Space {
  unsigned long long needed;
  unsigned long long free;
};

// About how much an upgrade needs beside the live databases, and how much is free. Nothing, with errno, where
// the file system does not tell.
[[nodiscard]] std::optional<Space> MeasureSpace(const package::VolumePaths& paths);

// Logs one line with about how many bytes an upgrade needs beside the live databases and how many are free,
// so that whoever finds an upgrade failed on a full disk knows how much to make free. It changes no outcome:
// the copies may share their blocks with the live databases, and a quota may leave less.
void LogFreeSpace(const package::VolumePaths& paths);

}  // namespace updater
