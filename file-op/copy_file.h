// Copying one regular file, by path or out of an open folder. The base of FSCopy and FSCopyTree.
#pragma once

#include <sys/stat.h>

#include <string>

#include "logger/component_log.h"

namespace file_op {

inline constexpr logger::Component kFileOpComponent = {"file_op_debug", "file-op"};

// A file: its name relative to the open folder `at`, and how messages call it. Borrows both texts.
struct FilePlace {
  int at;
  const std::string& name;
  const std::string& path;
};

struct CopyOptions {
  int source_flags = 0;  // added to those with which the file is opened
  int target_flags = 0;
  mode_t mode = 0666;  // of a target that is made, less the umask
  bool keep_owner = false;
};

// For copies that are never more readable than their source.
inline constexpr mode_t kPrivateMode = 0600;

// Returns 0, kCopyDiskFull or -1, each failure logged.
[[nodiscard]] int CopyFile(const FilePlace& source, const FilePlace& target, const CopyOptions& options);

// Gives the open file the owner and permission bits of `status`, as far as the process may. Returns 0, or -1
// with errno set.
[[nodiscard]] int ApplyOwnerAndMode(int fd, const struct stat& status);

}  // namespace file_op
