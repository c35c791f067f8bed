// What an upgrade takes on the volume.
#pragma once

#include <optional>
#include <string>

#include "package/layout.h"

namespace updater {

// In bytes.
struct Space {
  unsigned long long databases;  // what the live ones take
  unsigned long long needed;     // about how much an upgrade needs beside them
  unsigned long long free;
};

// How much of it is needed, and free on the file system of the folder `place`. Nothing, with errno, where the
// file system does not tell. Databases that cannot be examined count as empty.
[[nodiscard]] std::optional<Space> MeasureSpace(const package::VolumePaths& paths, const std::string& place);

// Logs one line with about how many bytes an upgrade needs beside the live databases and how many are free,
// so that whoever finds an upgrade failed on a full disk knows how much to make free. It changes no outcome:
// the copies may share their blocks with the live databases, and a quota may leave less.
void LogFreeSpace(const package::VolumePaths& paths);

}  // namespace updater
