#include "user-mgr/check_user.h"

#include "db-util/query.h"
#include "user-mgr/access.h"
#include "user-mgr/statement.h"

namespace user_mgr {
namespace {

bool LookForUsers(ViewId view_id, bool& found) {
  std::string query;
  if (!FormatStatement(query, "", "SELECT EXISTS (SELECT 1 FROM user_table WHERE view_id = %llu);",
                       view_id)) {
    return false;
  }
  int exists = 0;
  const db_util::Status status = db_util::QueryInt(Access::db(), query, exists);
  found = exists != 0;
  return Check(status, "UserManager::SelfCheck fail to look for users of view %llu: %s (%d)\n", view_id,
               status.message, status.code);
}

}  // namespace

bool CheckRun::IsUserHomeEnabled() {
  if (!user_home_enabled_) user_home_enabled_ = platform_.services.IsUserHomeEnabled();
  return *user_home_enabled_;
}

const MountPoints* CheckRun::Mounts() {
  if (!mounts_) {
    std::vector<std::string> mount_points;
    if (!Check(platform_.volumes.ListMountPoints(mount_points),
               "UserManager::SelfCheck fail to read the mount points\n")) {
      return nullptr;
    }
    mounts_.emplace(std::move(mount_points));
  }
  return &*mounts_;
}

bool CheckRun::NoteRemoval(const UserRecord& user, const char* why) {
  bool shares_view = false;
  if (damaged.MayBeShared(user.view_id) && !LookForUsers(user.view_id, shares_view)) return false;
  removed.push_back({user, why, shares_view});
  removed.back().user.watch_path = {};  // nobody asks for it
  return true;
}

void ReportRemoval(const UserRecord& user, const char* why) {
  logger::ComponentLog(kComponent, logger::Level::kWarning,
                       "UserManager::SelfCheck: removed user '%s' (uid %u, type %d, view %llu): %s\n",
                       user.name, user.uid, static_cast<int>(user.user_type), user.view_id, why);
}

bool UpdateWatchPath(ViewId view_id, const std::string& watch_path) {
  return Run("UPDATE user_table SET watch_path = %Q WHERE view_id = %llu; ", watch_path, view_id);
}

}  // namespace user_mgr
