// The kernel's tables of mounted file systems.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace platform::host {

struct Mount {
  int id = 0;
  int parent_id = 0;
  dev_t device_number = 0;
  std::string mount_point;
  std::string source;  // mostly a device path, but whatever was mounted
  std::string file_system;
};

// Reads a table in the form of /proc/self/mountinfo or of /proc/mounts, in its order, with escapes decoded; a
// table of the second form has no numbers. A line that is not in the form is left out. Returns 0 or a
// negative value.
[[nodiscard]] int ReadMountTable(const std::string& path, std::vector<Mount>& mounts);

// The mount on which a path lies whose links are resolved, found as the kernel walks the path: a mount that
// is hidden below a later one is not seen, and of several on one mount point the last one is on top. Null
// when there is none. Points into `mounts`.
[[nodiscard]] const Mount* FindMountOf(const std::vector<Mount>& mounts, const std::string& resolved_path);

}  // namespace platform::host
