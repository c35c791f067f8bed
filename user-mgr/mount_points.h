// The mount points of the machine, as the check of a share sees them.
#pragma once

#include <string>
#include <vector>

namespace user_mgr {

class MountPoints {
 public:
  // Takes all mount points, and drops those that contain a word of the exclusion list ("#snapshot").
  explicit MountPoints(std::vector<std::string> mount_points);

  // True when something is mounted on the folder `path` or beneath it.
  [[nodiscard]] bool AnyAtOrBelow(std::string path) const;

 private:
  std::vector<std::string> mount_points_;  // sorted
};

}  // namespace user_mgr
