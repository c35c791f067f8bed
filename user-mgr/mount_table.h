// The mount points that shares are tested against.
#pragma once

#include <string>
#include <vector>

namespace user_mgr {

class MountTable {
 public:
  // Takes all mount points of the machine. Those that contain a word of the exclusion list ("#snapshot")
  // count for no share.
  explicit MountTable(std::vector<std::string> mount_points);

  // True when something is mounted on the share's folder or beneath it.
  [[nodiscard]] bool HasMountAtOrBelow(std::string path) const;

 private:
  std::vector<std::string> mount_points_;  // sorted
};

}  // namespace user_mgr
