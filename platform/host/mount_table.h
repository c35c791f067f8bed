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
  std::string source;  // mostly the path of a device, but any text is possible
  std::string file_system;
};

// Read a table in the form of /proc/self/mountinfo or of /proc/mounts, in its order, with escapes decoded; a
// source may be empty. A line that is not in the form is left out. A name is taken as it stands, because
// a folder may be called "x (deleted)". They return 0, or a negative value when not one line could be read.
[[nodiscard]] int ReadMountInfo(const std::string& path, std::vector<Mount>& mounts);
[[nodiscard]] int ReadMountPoints(const std::string& path, std::vector<std::string>& mount_points);

// The mount on which a path lies whose links are resolved, found as the kernel walks the path: a mount that
// is hidden below a later one is not seen, and of several on one mount point the last one is on top. Null
// when there is none. Points into `mounts`.
[[nodiscard]] const Mount* FindMountOf(const std::vector<Mount>& mounts, const std::string& resolved_path);

}  // namespace platform::host
