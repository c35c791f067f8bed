// The self-check: services, then every user, page by page.
#include "user-mgr/access.h"
#include "user-mgr/check_user.h"
#include "user-mgr/user_manager.h"
#include "user-mgr/user_rows.h"

namespace user_mgr {
namespace {

constexpr unsigned kPageRows = 1000;

// The check finds users by view_id and sessions by uid, and the schema has no index on either: without these
// two, the cost of a check would grow with the square of the number of users. They exist inside the check's
// transaction only, so that the schema, and the order in which other queries see the users, stay as they are.
constexpr char kCreateIndexes[] =
    "CREATE INDEX self_check_view_idx ON user_table(view_id);"
    "CREATE INDEX self_check_session_uid_idx ON session_table(uid);";
constexpr char kDropIndexes[] =
    "DROP INDEX IF EXISTS self_check_view_idx;"
    "DROP INDEX IF EXISTS self_check_session_uid_idx;";

// Neither takes the lock, because the transaction that they belong to does not.
bool CreateIndexes() {
  const db_util::Status status = db_util::Execute(Access::db(), kCreateIndexes);
  // The check itself finds and reports a table or column that does not exist.
  return status.code == SQLITE_ERROR ||
         Check(status, "UserManager::SelfCheck fail to create indexes: %s (%d)\n", status.message,
               status.code);
}

bool DropIndexes() {
  return Check(ExecuteWithoutLock(kDropIndexes), "UserManager::SelfCheck fail to drop indexes\n");
}

// The operation of UserManager has a statement with other words ("uid in", "%d"); keep it so.
bool DeleteUsersOfType(UserType type) {
  const auto number = static_cast<unsigned>(type);
  return Run(
      "BEGIN TRANSACTION; "
      "DELETE FROM backup_task_table WHERE session IN (SELECT sess_id FROM session_table WHERE uid IN (SELECT id FROM user_table WHERE user_type = %u)); "
      "DELETE FROM session_table WHERE uid IN (SELECT id FROM user_table WHERE user_type = %u); "
      "DELETE FROM user_table WHERE user_type = %u; "
      "END TRANSACTION; ",
      number, number, number);
}

// Lists the users of a service as they are reported when they are removed.
bool ListUsersOf(UserType service, UserList& users) {
  std::string query;
  return FormatStatement(query, kSelectUser, "WHERE user_type = %d;", static_cast<int>(service)) &&
         ForEachRow("EnumUser", query, [&users](sqlite3_stmt* row) {
           UserRecord user;
           if (!ReadShortUser(row, user) || user.damage != Damage::kNone) return true;
           user.watch_path = {};
           users.push_back(std::move(user));
           return true;
         });
}

// Removes the users of a service that is off.
bool RemoveUsersOf(UserType service, const char* why, const DamagedRows& damaged) {
  UserList users;
  if (!ListUsersOf(service, users)) return false;
  const bool deleted = damaged.Protect() && DeleteUsersOfType(service);
  const bool unprotected = damaged.Unprotect();  // whether or not users could be deleted
  if (!deleted || !unprotected) return false;
  for (const UserRecord& user : users) ReportRemoval(user, why);
  return true;
}

bool CheckLdapService(const CheckRun& run) {
  return run.platform().services.IsLdapEnabled() ||
         Check(RemoveUsersOf(UserType::kLdap, "the LDAP service is off", run.damaged),
               "UserManager::CheckLdapService DeleteUserByUserType fail (LDAP)");
}

// The message names the LDAP check here, too; keep it so.
bool CheckDomainService(const CheckRun& run) {
  return run.platform().services.IsDomainEnabled() ||
         Check(RemoveUsersOf(UserType::kDomain, "the domain service is off", run.damaged),
               "UserManager::CheckLdapService DeleteUserByUserType fail (DOMAIN)");
}

// The accounts of a directory are not looked up. While its service is on, nothing has to change. Spelt as in
// its message.
bool CheckLdapDomaiinUser() { return true; }

bool CheckOneUser(const UserRecord& user, CheckRun& run) {
  switch (user.user_type) {
    case UserType::kShare:
      return Check(CheckShareUser(user, run), "Failed to CheckShareUser %s\n", user.name);
    case UserType::kNormal:
      return Check(CheckNormalUser(user, run), "Failed to CheckLocalUser %s\n", user.name);
    case UserType::kLdap:
    case UserType::kDomain:
      return Check(CheckLdapDomaiinUser(), "Failed to CheckLdapDomaiinUser %s\n", user.name);
  }
  return true;  // any other type is nobody's to check
}

// `rows` counts the rows of the statement, of which the page leaves out damaged ones and share users without
// "@".
bool ReadPage(unsigned offset, UserList& page, unsigned& rows) {
  page.clear();
  rows = 0;
  std::string query;
  return FormatStatement(query, kSelectUser, " LIMIT %u OFFSET %u;", kPageRows, offset) &&
         ForEachRow("EnumUser", query, [&](sqlite3_stmt* row) {
           ++rows;
           UserRecord user;
           if (ReadShortUser(row, user) && user.damage == Damage::kNone) page.push_back(std::move(user));
           return true;
         });
}

bool CheckUser(CheckRun& run) {
  unsigned offset = 0;
  unsigned rows = 0;
  UserList page;
  do {
    if (!Check(ReadPage(offset, page, rows), "Failed to enumerate users\n")) return false;
    // When the check removes rows of this page, the later ones move forward, and the next page begins behind
    // as many of them. These wait for the next check; keep it so.
    offset += rows;
    for (const UserRecord& user : page) {
      if (!CheckOneUser(user, run)) return false;
    }
  } while (rows == kPageRows);
  return true;
}

// The check of the users with what it makes for itself. That goes after a failure, too, because the caller
// may still end the transaction.
bool CheckUserInTransaction(CheckRun& run) {
  const bool checked = run.damaged.Protect() && CreateIndexes() && CheckUser(run);
  const bool dropped = DropIndexes();
  const bool unprotected = run.damaged.Unprotect();
  return checked && dropped && unprotected;
}

// To be called after the end of the transaction, because until then nobody is gone.
void ReportRemovals(const CheckRun& run, std::list<ViewId>& removed_views) {
  for (const RemovedUser& removed : run.removed) {
    ReportRemoval(removed.user, removed.why);
    if (!removed.shares_view) {
      removed_views.push_back(removed.user.view_id);
      continue;
    }
    // When the same check removes the others of the view later, it lists the view with the last of them.
    logger::ComponentLog(
        kComponent, logger::Level::kWarning,
        "UserManager::SelfCheck: view %llu is not deleted with user '%s': another user row names it\n",
        removed.user.view_id, removed.user.name);
  }
}

}  // namespace

int UserManager::SelfCheck(std::list<ViewId>& removed_views) {
  if (!Check(platform_ != nullptr, "UserManager::SelfCheck: no platform was configured\n")) return -1;
  CheckRun run(*platform_);
  // What cannot be read here is reported as it is by CheckUser, which could not read it either. After a
  // failure of CheckUser the transaction stays open, and goes when the caller closes the manager; keep it so.
  const bool checked = Check(Check(run.damaged.Find(), "Failed to enumerate users\n"),
                             "UserManager::SelfCheck CheckUser fail") &&
                       Check(CheckLdapService(run), "UserManager::SelfCheck CheckLdapService fail") &&
                       Check(CheckDomainService(run), "UserManager::SelfCheck CheckDomainService fail") &&
                       Check(BeginTransaction(), "UserManager::SelfCheck BeginTransaction fail") &&
                       Check(CheckUserInTransaction(run), "UserManager::SelfCheck CheckUser fail") &&
                       Check(EndTransaction(), "UserManager::SelfCheck EndTransaction fail");
  if (checked) ReportRemovals(run, removed_views);
  return ToResult(checked);
}

}  // namespace user_mgr
