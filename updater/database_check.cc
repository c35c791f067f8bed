#include "updater/database_check.h"

#include <list>
#include <map>
#include <memory>

#include "db/manager.h"
#include "logger/log_sink.h"
#include "platform/sdk/volume_uuid.h"
#include "user-mgr/user_manager.h"

namespace updater {
namespace {

using logger::CheckOrLog;
using user_mgr::UserManager;

void CloseDatabases() {
  db::Manager::Destroy(false);
  UserManager::Destroy();
}

bool RemoveFromView(db::ViewId view_id, const std::string& uuid) {
  std::shared_ptr<db::ViewDBInterface> view;
  return CheckOrLog(db::Manager::GetViewDB(view_id, view), "Failed to open view db with view_id %llu\n",
                    view_id) &&
         CheckOrLog(view->DeleteRecordWithUuid(uuid), "DeleteNodeWithUuid failed for view %llu\n", view_id);
}

bool RemoveVolume(const std::string& uuid) {
  logger::SystemLog("Delete uuid %s from Stratofolder DB\n", uuid);
  user_mgr::UserList users;
  if (!CheckOrLog(UserManager::EnumAllUser(users), "EnumAllUser failed\n")) return false;
  for (const user_mgr::UserRecord& user : users) {
    if (user.damage == user_mgr::Damage::kViewId) continue;  // names no view; the self-check has told
    if (!RemoveFromView(user.view_id, uuid)) return false;
  }
  return CheckOrLog(db::Manager::DeleteUuidFromVolumeTable(uuid),
                    "Cannot DeleteUuidFromVolumeTable for uuid (%s)\n", uuid);
}

}  // namespace

int DatabaseCheck::Run(const package::VolumePaths& paths) {
  std::vector<std::string> changed;
  if (!CheckUsers(paths) || !FindChangedVolumes(changed)) {
    CloseDatabases();
    return -1;
  }
  for (const std::string& uuid : changed) {
    if (!RemoveVolume(uuid)) return -1;  // without closing, unlike the failures above; keep it so
  }
  CloseDatabases();
  return 0;
}

bool DatabaseCheck::CheckUsers(const package::VolumePaths& paths) {
  if (!CheckOrLog(db::Manager::Initialize(paths.live.sync_folder),
                  "Failed to initialize sync folder data database\n")) {
    return false;
  }
  UserManager::Configure(platform_, system_.user_lock);
  std::list<user_mgr::ViewId> gone_views;
  if (!CheckOrLog(UserManager::Initialize(paths.live.user),
                  "Failed to initialize sync folder user database\n") ||
      !CheckOrLog(UserManager::SelfCheck(gone_views), "Failed to do initial self check on user database\n")) {
    return false;
  }
  for (const user_mgr::ViewId view_id : gone_views) {
    (void)db::Manager::DeleteView(view_id);  // its result is logged; a folder that stays does no harm
  }
  return true;
}

bool DatabaseCheck::FindChangedVolumes(std::vector<std::string>& changed) {
  std::map<std::string, std::string> volumes;
  if (!CheckOrLog(CheckOrLog(db::Manager::EnumVolumeTable(volumes), "failed to EnumVolumeTable\n"),
                  "Failed to do initial self check on volume\n")) {
    return false;
  }
  for (const auto& [recorded, path] : volumes) {
    std::string present;
    // A volume that is gone counts as changed; one that only could not be asked must not lose its records.
    const int result = platform::sdk::GetVolumeUuid(platform_.volumes, path, present);
    if (!CheckOrLog(result != platform::kCouldNotAsk, "cannot tell the uuid of %s, no volume is removed\n",
                    path)) {
      return false;
    }
    if (result >= 0 && present == recorded) continue;
    logger::SystemLog("uuid changed for %s (%s -> %s)!", path, recorded, present);
    changed.push_back(recorded);
  }
  return true;
}

}  // namespace updater
