#include <algorithm>

#include "user-mgr/check_user.h"
#include "user-mgr/statement.h"
#include "user-mgr/user_manager.h"

namespace user_mgr {
namespace {

bool IsReplica(const platform::Share& share) {
  return share.is_replica && std::any_of(share.flags.begin(), share.flags.end(), [](const std::string& flag) {
           return flag == "dhos" || flag == "share_replica_demote";
         });
}

// Returns kFound when the user stays, kNotFound with the reason in `why` when its share cannot be
// synchronised, and kFailed after logging.
platform::Lookup FindShare(const UserRecord& user, CheckRun& run, platform::Share& share, const char*& why) {
  const platform::Lookup opened = run.platform().shares.Open(user.name, share);
  if (opened == platform::Lookup::kFailed) {
    logger::ComponentError(kComponent, "UserManager::CheckShareUser fail to look up share '%s'\n", user.name);
  }
  why = "there is no such share";
  if (opened != platform::Lookup::kFound) return opened;

  const MountPoints* mounts = run.Mounts();
  if (mounts == nullptr) return platform::Lookup::kFailed;
  const bool may_hold_mounts = (user.attribute & kSuspended) != 0;
  why = "a file system is mounted in the folder of the share";
  if (!may_hold_mounts && mounts->AnyAtOrBelow(share.path)) return platform::Lookup::kNotFound;
  why = "the share is a replica";
  return IsReplica(share) ? platform::Lookup::kNotFound : platform::Lookup::kFound;
}

bool KeepShareUser(const UserRecord& user, const platform::Share& share) {
  if (share.path == user.watch_path) return true;
  return Check(UpdateWatchPath(user.view_id, share.path),
               "UserManager::CheckShareUser fail to update watch path %s to share '%s'.\n", share.path,
               user.name);
}

// Sessions and backup tasks of the share user stay.
bool RemoveShareUserOf(const UserRecord& user, CheckRun& run, const char* why) {
  return Check(UserManager::RemoveShareUser(user.name),
               "UserManager::CheckShareUser fail to RemoveShareUser %s\n", user.name) &&
         run.NoteRemoval(user, why);
}

}  // namespace

bool CheckShareUser(const UserRecord& user, CheckRun& run) {
  platform::Share share;
  const char* why = "";
  switch (FindShare(user, run, share, why)) {
    case platform::Lookup::kFound:
      return KeepShareUser(user, share);
    case platform::Lookup::kNotFound:
      return RemoveShareUserOf(user, run, why);
    case platform::Lookup::kFailed:
      break;
  }
  return false;
}

}  // namespace user_mgr
