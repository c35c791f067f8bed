// Copying one regular file, by path or out of an open folder. The base of FSCopy and FSCopyTree.
#pragma once

#include "base/errno.h"
#include "file-op/folder.h"
#include "logger/component_log.h"

namespace file_op {

inline constexpr logger::Component kFileOpComponent = {"file_op_debug", "file-op"};

struct CopyOptions {
  int source_flags = 0;  // added to those with which the file is opened
  // The target must not be there, is private while it is written, and then gets the owner and the mode of the
  // source. Otherwise it is made or emptied, mode 0666 less the umask, and links are followed.
  bool exclusive = true;
};

// The result of a copy in which something failed: kCopyDiskFull or -1.
[[nodiscard]] int ResultOfCopy(base::Errno error);

// Returns 0, kCopyDiskFull or -1, each failure logged and with errno set.
[[nodiscard]] int CopyFile(const FilePlace& source, const FilePlace& target, const CopyOptions& options);

}  // namespace file_op
