// The folder that a path leads to, with the links on the way looked at.
#pragma once

#include <string>

#include "base/errno.h"
#include "base/file_descriptor.h"

namespace base {

struct RealFolder {
  FileDescriptor folder;  // for the calls that take a path below it
  std::string path;       // without links
};

// Opens the folder that holds the last name of `path`, one name after the other. A link on the way is
// followed only if root or this process's user made it: anybody else who can write to a folder on the way
// could lead this process somewhere else, and ELOOP says so. `out` is replaced on success only.
[[nodiscard]] Errno OpenRealFolder(const std::string& path, RealFolder& out);

}  // namespace base
