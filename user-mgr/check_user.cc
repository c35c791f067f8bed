#include "user-mgr/check_user.h"

#include "db-util/query.h"
#include "user-mgr/access.h"
#include "user-mgr/statement.h"

namespace user_mgr {

bool CheckRun::IsUserHomeEnabled() {
  if (!user_home_enabled_) user_home_enabled_ = platform_.services.IsUserHomeEnabled();
  return *user_home_enabled_;
}

const MountPoints* CheckRun::Mounts() {
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

int CheckRun::NoteRemoval(const UserRecord& user, const char* why) {
  if (!damaged.MayBeShared(user.view_id)) {
    removed.push_back({user, why, false});
    return 0;
  }
  std::string query;
  if (!FormatStatement(query, "", "SELECT EXISTS (SELECT 1 FROM user_table WHERE view_id = %llu);",
                       user.view_id))
    return -1;
  int others = 0;
  const db_util::Status result = db_util::QueryInt(Access::db(), query, others);
  if (!result.ok()) {
    return Checked(-1, "UserManager::SelfCheck fail to look for users of view %llu: %s (%d)\n", user.view_id,
                   result.message, result.code);
  }
  removed.push_back({user, why, others != 0});
  return 0;
}

void ReportRemoval(const UserRecord& user, const char* why) {
  logger::ComponentLog(kComponent, logger::Level::kWarning,
                       "UserManager::SelfCheck: removed user '%s' (uid %u, type %d, view %llu): %s\n",
                       user.name, user.uid, static_cast<int>(user.user_type), user.view_id, why);
}

int UpdateWatchPath(ViewId view_id, const std::string& watch_path) {
  return Run("UPDATE user_table SET watch_path = %Q WHERE view_id = %llu; ", watch_path, view_id);
}

}  // namespace user_mgr
