#include "user-mgr/check_user.h"

#include "user-mgr/statement.h"

namespace user_mgr {

bool CheckRun::IsUserHomeEnabled() {
  if (!user_home_enabled_) user_home_enabled_ = platform_.services.IsUserHomeEnabled();
  return *user_home_enabled_;
}

const MountTable* CheckRun::Mounts() {
  if (!mounts_) {
    std::vector<std::string> mount_points;
    if (platform_.volumes.ListMountPoints(mount_points) < 0) {
      logger::ComponentError(kComponent, "UserManager::SelfCheck fail to read the mount points\n");
      return nullptr;
    }
    mounts_.emplace(std::move(mount_points));
  }
  return &*mounts_;
}

int UpdateWatchPath(ViewId view_id, const std::string& watch_path) {
  return Run("UPDATE user_table SET watch_path = %Q WHERE view_id = %llu; ", watch_path, view_id);
}

}  // namespace user_mgr
