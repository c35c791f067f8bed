// The file systems that the package of one volume lies on.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "base/errno.h"
#include "base/file_descriptor.h"
#include "package/layout.h"

namespace updater {

// Working copies are written without flushing anything. They are brought to the disk all at once, whatever
// their number. A write that fails later than the call that made it is told to those who had the file system
// open then, so this is to be opened before the first copy is made.
class FileSystems {
 public:
  // Folders of the package may be file systems of their own. One that cannot be opened makes Flush() fail.
  void Open(const package::VolumePaths& paths);

  // Brings everything written since then to the disk. Returns false after logging "cannot flush file system
  // of %s: %s (%d)\n".
  [[nodiscard]] bool Flush() const;

 private:
  struct FileSystem {
    std::string folder;
    base::FileDescriptor file;
    dev_t device;
    base::Errno error;
  };
  std::vector<FileSystem> file_systems_;
};

}  // namespace updater
