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

using user_mgr::UserManager;

void CloseDatabases() {
  db::Manager::Destroy(false);
  UserManager::Destroy();
}

int RemoveFromView(db::ViewId view_id, const std::string& uuid) {
  std::shared_ptr<db::ViewDBInterface> view;
  if (db::Manager::GetViewDB(view_id, view) < 0) {
    logger::SystemLog("Failed to open view db with view_id %llu\n", view_id);
    return -1;
  }
  if (view->DeleteRecordWithUuid(uuid) < 0) {
    logger::SystemLog("DeleteNodeWithUuid failed for view %llu\n", view_id);
    return -1;
  }
  return 0;
}

int RemoveVolume(const std::string& uuid) {
  logger::SystemLog("Delete uuid %s from Stratofolder DB\n", uuid);
  user_mgr::UserList users;
  if (UserManager::EnumAllUser(users) < 0) {
    logger::SystemLog("EnumAllUser failed\n");
    return -1;
  }
  for (const user_mgr::UserRecord& user : users) {
    if (user.damage == user_mgr::Damage::kViewId) continue;  // names no view; the self-check has told
    if (RemoveFromView(user.view_id, uuid) < 0) return -1;
  }
  if (db::Manager::DeleteUuidFromVolumeTable(uuid) < 0) {
    logger::SystemLog("Cannot DeleteUuidFromVolumeTable for uuid (%s)\n", uuid);
    return -1;
  }
  return 0;
}

}  // namespace

int DatabaseCheck::Run(const RunPaths& paths) {
  std::vector<std::string> changed;
  if (CheckUsers(paths) < 0 || FindChangedVolumes(changed) < 0) {
    CloseDatabases();
    return -1;
  }
  for (const std::string& uuid : changed) {
    if (RemoveVolume(uuid) < 0) return -1;  // without closing, unlike the failures above; keep it so
  }
  CloseDatabases();
  return 0;
}

int DatabaseCheck::CheckUsers(const RunPaths& paths) {
  if (db::Manager::Initialize(paths.sync_folder) < 0) {
    logger::SystemLog("Failed to initialize sync folder data database\n");
    return -1;
  }
  UserManager::Configure(platform_, paths_.user_lock);
  if (UserManager::Initialize(paths.user_db) < 0) {
    logger::SystemLog("Failed to initialize sync folder user database\n");
    return -1;
  }
  std::list<user_mgr::ViewId> gone_views;
  if (UserManager::SelfCheck(gone_views) < 0) {
    logger::SystemLog("Failed to do initial self check on user database\n");
    return -1;
  }
  for (const user_mgr::ViewId view_id : gone_views) {
    (void)db::Manager::DeleteView(view_id);  // its result is logged; a folder that stays does no harm
  }
  return 0;
}

int DatabaseCheck::FindChangedVolumes(std::vector<std::string>& changed) {
  std::map<std::string, std::string> volumes;
  if (db::Manager::EnumVolumeTable(volumes) < 0) {
    logger::SystemLog("failed to EnumVolumeTable\n");
    logger::SystemLog("Failed to do initial self check on volume\n");
    return -1;
  }
  for (const auto& [recorded, path] : volumes) {
    std::string present;
    // A volume that is gone counts as changed.
    const bool is_there = platform::sdk::GetVolumeUuid(platform_.volumes, path, present) >= 0;
    if (is_there && present == recorded) continue;
    logger::SystemLog("uuid changed for %s (%s -> %s)!", path, recorded, present);
    changed.push_back(recorded);
  }
  return 0;
}

}  // namespace updater
