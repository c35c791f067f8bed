// The folders that people name on the command line.
#pragma once

#include <string>

#include "base/file_descriptor.h"

namespace ctl {

// The path from the root, without "." and ".." and without a slash at its end. Returns 0, or -1 with the
// reason in `error`; the folder need not exist.
[[nodiscard]] int AbsolutePath(const std::string& argument, std::string& path, std::string& error);

// The folder of a volume that can be upgraded: one that holds a data database below its own
// @stratofolder/@sync and that this process may change. `volume` becomes its path, links resolved. Returns 0,
// or -1 with the reason in `error`. Only looks.
[[nodiscard]] int FindVolume(const std::string& argument, std::string& volume, std::string& error);

// A folder of its own for a run's state: neither the root folder, where the state of the machine's package
// is, nor one in the package's folder. `path` becomes its path. Returns 0, or -1 with the reason in `error`.
[[nodiscard]] int FindStateFolder(const std::string& argument, const std::string& volume, std::string& path,
                                  std::string& error);

// Takes a folder for this process alone; the lock ends with `lock`, and with the process however that ends.
// It is on the folder itself, so that it holds under whatever name the folder is reached, and leaves no file
// behind. Returns 0, or -1 with the reason in `error`, at once when somebody else has it.
[[nodiscard]] int LockFolder(const std::string& folder, base::FileDescriptor& lock, std::string& error);

}  // namespace ctl
