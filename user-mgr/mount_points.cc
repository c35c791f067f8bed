#include "user-mgr/mount_points.h"

#include <algorithm>

namespace user_mgr {
namespace {

// Built once, on first use.
const std::vector<std::string>& ExclusionList() {
  static const std::vector<std::string> words = {"#snapshot"};
  return words;
}

bool IsExcluded(const std::string& mount_point) {
  return std::any_of(ExclusionList().begin(), ExclusionList().end(),
                     [&](const std::string& word) { return mount_point.find(word) != std::string::npos; });
}

}  // namespace

MountPoints::MountPoints(std::vector<std::string> mount_points) : mount_points_(std::move(mount_points)) {
  mount_points_.erase(std::remove_if(mount_points_.begin(), mount_points_.end(), IsExcluded),
                      mount_points_.end());
  std::sort(mount_points_.begin(), mount_points_.end());
}

bool MountPoints::AnyAtOrBelow(std::string path) const {
  path.erase(path.find_last_not_of('/') + 1);
  if (std::binary_search(mount_points_.begin(), mount_points_.end(), path)) return true;
  path += '/';
  const auto below = std::lower_bound(mount_points_.begin(), mount_points_.end(), path);
  return below != mount_points_.end() && below->starts_with(path);
}

}  // namespace user_mgr
