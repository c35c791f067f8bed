#include "user-mgr/check_user.h"
#include "user-mgr/statement.h"

namespace user_mgr {
namespace {

// Below the user's home folder.
constexpr char kWatchFolder[] = "/StratoFolder";

// Does not take the lock, unlike the other statements of the check.
int RemoveUserNoTransaction(const std::string& name) {
  std::string script;
  const bool fits = FormatStatement(
      script, "",
      "DELETE FROM backup_task_table WHERE session IN (SELECT sess_id FROM session_table WHERE uid = (SELECT id FROM user_table WHERE name = %Q ));"
      "DELETE FROM session_table WHERE uid = (SELECT id FROM user_table WHERE name = %Q );"
      "DELETE FROM user_table WHERE name = %Q AND NOT (user_type = %d);",
      name, name, name, static_cast<int>(UserType::kShare));
  return fits ? ExecuteWithoutLock(script) : -1;
}

int RemoveUserOf(const UserRecord& user, CheckRun& run) {
  if (RemoveUserNoTransaction(user.name) < 0) {
    return Checked(-1, "UserManager::CheckNormalUser fail to RemoveUserNoTransaction %s\n", user.name);
  }
  return run.NoteRemoval(user, "there is no such account");
}

int RemoveSessionsOfUser(const std::string& name) {
  return Run(
      "DELETE FROM backup_task_table WHERE session IN (SELECT sess_id FROM session_table WHERE uid in (select id from user_table where name = %Q));"
      "DELETE FROM session_table WHERE uid = (select id from user_table where name = %Q);",
      name, name);
}

// The account was renamed: its clients must log in again, under the new name.
int FollowName(const UserRecord& user, const platform::Account& account) {
  if (account.name == user.name) return 0;
  logger::ComponentLog(kComponent, logger::Level::kInfo,
                       "UserManager::Check Normal user user name change, remove session of user '%s'\n",
                       user.name);
  if (RemoveSessionsOfUser(user.name) < 0) return Checked(-1, "remove user %s sesion failed \n", user.name);
  return Checked(Run("UPDATE user_table SET name = %Q WHERE view_id = %llu; ", account.name, user.view_id),
                 "update local user name failed \n");
}

int FollowHomeFolder(const UserRecord& user, const platform::Account& account, CheckRun& run) {
  std::string watch_path;
  if (run.IsUserHomeEnabled()) watch_path = account.home + kWatchFolder;
  // Written even when it is the same.
  return Checked(UpdateWatchPath(user.view_id, watch_path),
                 "UserManager::CheckNormalUser failed to update watch path '%s'' to '%s'", user.watch_path,
                 watch_path);
}

int FollowAttributeAndGroup(const UserRecord& user, const platform::Account& account) {
  const bool was_expired = (user.attribute & kExpired) != 0;
  if (was_expired == account.expired && user.gid == account.gid) return 0;
  const int attribute = was_expired == account.expired ? user.attribute : user.attribute ^ kExpired;
  return Checked(Run("UPDATE user_table SET attribute = %d, gid = %u WHERE view_id = %llu; ", attribute,
                     account.gid, user.view_id),
                 "UserManager::CheckNormalUser fail to UpdateUserAttrAndGid %s\n", user.name);
}

}  // namespace

int CheckNormalUser(const UserRecord& user, CheckRun& run) {
  platform::Account account;
  switch (run.platform().accounts.FindByUid(user.uid, account)) {
    case platform::Lookup::kFailed:
      return Checked(-1, "UserManager::CheckNormalUser fail to look up the account of uid %u\n", user.uid);
    case platform::Lookup::kNotFound:
      return RemoveUserOf(user, run);
    case platform::Lookup::kFound:
      break;
  }
  if (FollowName(user, account) < 0) return -1;
  if (FollowHomeFolder(user, account, run) < 0) return -1;
  return FollowAttributeAndGroup(user, account);
}

}  // namespace user_mgr
