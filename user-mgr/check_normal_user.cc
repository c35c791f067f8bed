#include "user-mgr/check_user.h"
#include "user-mgr/statement.h"

namespace user_mgr {
namespace {

// Below the user's home folder.
constexpr char kWatchFolder[] = "/StratoFolder";

// Runs without the lock, unlike the other changes that the check makes; keep it so.
bool RemoveUserNoTransaction(const std::string& name) {
  std::string script;
  return FormatStatement(
             script, "",
             "DELETE FROM backup_task_table WHERE session IN (SELECT sess_id FROM session_table WHERE uid = (SELECT id FROM user_table WHERE name = %Q ));"
             "DELETE FROM session_table WHERE uid = (SELECT id FROM user_table WHERE name = %Q );"
             "DELETE FROM user_table WHERE name = %Q AND NOT (user_type = %d);",
             name, name, name, static_cast<int>(UserType::kShare)) &&
         ExecuteWithoutLock(script);
}

bool RemoveUserOf(const UserRecord& user, CheckRun& run) {
  return Check(RemoveUserNoTransaction(user.name),
               "UserManager::CheckNormalUser fail to RemoveUserNoTransaction %s\n", user.name) &&
         run.NoteRemoval(user, "there is no such account");
}

bool RemoveSessionsOfUser(const std::string& name) {
  return Run(
      "DELETE FROM backup_task_table WHERE session IN (SELECT sess_id FROM session_table WHERE uid in (select id from user_table where name = %Q));"
      "DELETE FROM session_table WHERE uid = (select id from user_table where name = %Q);",
      name, name);
}

// The account was renamed: its clients must log in again, under the new name.
bool FollowName(const UserRecord& user, const platform::Account& account) {
  if (account.name == user.name) return true;
  logger::ComponentLog(kComponent, logger::Level::kInfo,
                       "UserManager::Check Normal user user name change, remove session of user '%s'\n",
                       user.name);
  return Check(RemoveSessionsOfUser(user.name), "remove user %s sesion failed \n", user.name) &&
         Check(Run("UPDATE user_table SET name = %Q WHERE view_id = %llu; ", account.name, user.view_id),
               "update local user name failed \n");
}

bool FollowHomeFolder(const UserRecord& user, const platform::Account& account, CheckRun& run) {
  std::string watch_path;
  if (run.IsUserHomeEnabled()) watch_path = account.home + kWatchFolder;
  // The path is written even when it is the same.
  return Check(UpdateWatchPath(user.view_id, watch_path),
               "UserManager::CheckNormalUser failed to update watch path '%s'' to '%s'", user.watch_path,
               watch_path);
}

bool FollowAttributeAndGroup(const UserRecord& user, const platform::Account& account) {
  const bool was_expired = (user.attribute & kExpired) != 0;
  if (was_expired == account.expired && user.gid == account.gid) return true;
  const int attribute = was_expired == account.expired ? user.attribute : user.attribute ^ kExpired;
  return Check(Run("UPDATE user_table SET attribute = %d, gid = %u WHERE view_id = %llu; ", attribute,
                   account.gid, user.view_id),
               "UserManager::CheckNormalUser fail to UpdateUserAttrAndGid %s\n", user.name);
}

}  // namespace

bool CheckNormalUser(const UserRecord& user, CheckRun& run) {
  platform::Account account;
  switch (run.platform().accounts.FindByUid(user.uid, account)) {
    case platform::Lookup::kFailed:
      logger::ComponentError(
          kComponent, "UserManager::CheckNormalUser fail to look up the account of uid %u\n", user.uid);
      return false;
    case platform::Lookup::kNotFound:
      return RemoveUserOf(user, run);
    case platform::Lookup::kFound:
      break;
  }
  return FollowName(user, account) && FollowHomeFolder(user, account, run) &&
         FollowAttributeAndGroup(user, account);
}

}  // namespace user_mgr
