// Folders that a command makes, and takes back when it does not succeed.
#pragma once

#include <string>
#include <vector>

#include "base/file_descriptor.h"

namespace ctl {

class MadeFolders {
 public:
  MadeFolders() = default;
  MadeFolders(const MadeFolders&) = delete;
  MadeFolders& operator=(const MadeFolders&) = delete;
  // Removes every folder that was made here, with everything in it, unless Keep() was called. A folder that
  // was there before stays, whatever was put into it.
  ~MadeFolders();

  // Makes the folder, whose path begins at the root, and those missing above it; one that exists is success.
  // Returns 0, or -1 with the reason in `error`.
  [[nodiscard]] int Make(const std::string& path, std::string& error);
  // The same, and takes the folder as LockFolder() does. What somebody else has taken is not removed.
  [[nodiscard]] int MakeLocked(const std::string& path, base::FileDescriptor& lock, std::string& error);
  void Keep() { made_.clear(); }

 private:
  std::vector<std::string> made_;
};

}  // namespace ctl
