// The self-check: services, then every user, page by page.
#include "user-mgr/access.h"
#include "user-mgr/check_user.h"
#include "user-mgr/user_manager.h"
#include "user-mgr/user_rows.h"

namespace user_mgr {
namespace {

constexpr unsigned kPageRows = 1000;

// The check finds rows by view_id and sessions by uid, which the schema has no indexes for: without these,
// its cost would grow with the square of the number of users. They exist inside the check's transaction only,
// so that the schema, and the order in which other queries see the users, stay as they are.
constexpr char kCreateIndexes[] =
    "CREATE INDEX self_check_view_idx ON user_table(view_id);"
    "CREATE INDEX self_check_session_uid_idx ON session_table(uid);";
constexpr char kDropIndexes[] =
    "DROP INDEX IF EXISTS self_check_view_idx;"
    "DROP INDEX IF EXISTS self_check_session_uid_idx;";

// Both without the lock, like the transaction that they belong to.
int CreateIndexes() {
  const db_util::Status status = db_util::Execute(Access::db(), kCreateIndexes);
  // A table or column that does not exist is for the check itself to find; it would only be slower.
  if (status.ok() || status.code == SQLITE_ERROR) return 0;
  return Checked(-1, "UserManager::SelfCheck fail to create indexes: %s (%d)\n", status.message, status.code);
}

int DropIndexes() {
  return Checked(ExecuteWithoutLock(kDropIndexes), "UserManager::SelfCheck fail to drop indexes\n");
}

// UserManager's own operation words its statement differently ("uid in", "%d"); keep both.
int DeleteUsersOfType(UserType type) {
  const auto number = static_cast<unsigned>(type);
  return Run(
      "BEGIN TRANSACTION; "
      "DELETE FROM backup_task_table WHERE session IN (SELECT sess_id FROM session_table WHERE uid IN (SELECT id FROM user_table WHERE user_type = %u)); "
      "DELETE FROM session_table WHERE uid IN (SELECT id FROM user_table WHERE user_type = %u); "
      "DELETE FROM user_table WHERE user_type = %u; "
      "END TRANSACTION; ",
      number, number, number);
}

// Removes the users of a service that is off.
int RemoveUsersOf(UserType service, const char* why, const DamagedRows& damaged) {
  UserList users;
  if (UserManager::EnumUserByType(service, users) < 0) return -1;
  int result = damaged.Protect() < 0 ? -1 : DeleteUsersOfType(service);
  if (damaged.Unprotect() < 0) result = -1;
  if (result < 0) return -1;
  for (const UserRecord& user : users) {
    if (user.damage == Damage::kNone) ReportRemoval(user, why);
  }
  return 0;
}

int CheckLdapService(const CheckRun& run) {
  if (run.platform().services.IsLdapEnabled()) return 0;
  return Checked(RemoveUsersOf(UserType::kLdap, "the LDAP service is off", run.damaged),
                 "UserManager::CheckLdapService DeleteUserByUserType fail (LDAP)");
}

int CheckDomainService(const CheckRun& run) {
  if (run.platform().services.IsDomainEnabled()) return 0;
  // The message names the LDAP check for the domain, too.
  return Checked(RemoveUsersOf(UserType::kDomain, "the domain service is off", run.damaged),
                 "UserManager::CheckLdapService DeleteUserByUserType fail (DOMAIN)");
}

// Accounts of directories are not looked up: there is nothing to compare them with while the service is on.
int CheckLdapDomaiinUser(const UserRecord& /*user*/) { return 0; }

int CheckOneUser(const UserRecord& user, CheckRun& run) {
  switch (user.user_type) {
    case UserType::kShare:
      return Checked(CheckShareUser(user, run), "Failed to CheckShareUser %s\n", user.name);
    case UserType::kNormal:
      return Checked(CheckNormalUser(user, run), "Failed to CheckLocalUser %s\n", user.name);
    case UserType::kLdap:
    case UserType::kDomain:
      return Checked(CheckLdapDomaiinUser(user), "Failed to CheckLdapDomaiinUser %s\n", user.name);
  }
  return 0;  // any other type
}

// `rows` is what the statement yielded: the page leaves out damaged rows and share users without "@".
int ReadPage(unsigned offset, UserList& page, unsigned& rows) {
  page.clear();
  rows = 0;
  std::string query;
  if (!FormatStatement(query, kSelectUser, " LIMIT %u OFFSET %u;", kPageRows, offset)) return -1;
  return ForEachRow("EnumUser", query, [&](sqlite3_stmt* row) {
    ++rows;
    UserRecord user;
    if (ReadUser(row, user) && user.damage == Damage::kNone) page.push_back(std::move(user));
  });
}

int CheckUser(CheckRun& run) {
  unsigned offset = 0;
  unsigned rows = 0;
  UserList page;
  do {
    if (Checked(ReadPage(offset, page, rows), "Failed to enumerate users\n") < 0) return -1;
    // Rows that go move the later ones forward, past which the offset then skips: they wait for the next
    // check.
    offset += rows;
    for (const UserRecord& user : page) {
      if (CheckOneUser(user, run) < 0) return -1;
    }
  } while (rows == kPageRows);
  return 0;
}

// The users inside the transaction. Its helpers go in any case: a caller may still end it after a failure.
int CheckUserInTransaction(CheckRun& run) {
  int result = run.damaged.Protect() < 0 || CreateIndexes() < 0 ? -1 : CheckUser(run);
  if (DropIndexes() < 0) result = -1;
  if (run.damaged.Unprotect() < 0) result = -1;
  return result;
}

// Only after the end of the transaction: until then nobody is gone.
void ReportRemovals(const CheckRun& run, std::list<ViewId>& removed_views) {
  for (const RemovedUser& removed : run.removed) {
    ReportRemoval(removed.user, removed.why);
    if (!removed.shares_view) {
      removed_views.push_back(removed.user.view_id);
      continue;
    }
    // When the others of the view go later in the same check, it goes with the last of them.
    logger::ComponentLog(
        kComponent, logger::Level::kWarning,
        "UserManager::SelfCheck: view %llu is not deleted with user '%s': another user row names it\n",
        removed.user.view_id, removed.user.name);
  }
}

}  // namespace

int UserManager::SelfCheck(std::list<ViewId>& removed_views) {
  if (platform_ == nullptr) return Checked(-1, "UserManager::SelfCheck: no platform was configured\n");
  CheckRun run(*platform_);
  // A table that cannot be read here could not be read later either.
  if (Checked(run.damaged.Find(), "Failed to enumerate users\n") < 0)
    return Checked(-1, "UserManager::SelfCheck CheckUser fail");
  if (CheckLdapService(run) < 0) return Checked(-1, "UserManager::SelfCheck CheckLdapService fail");
  if (CheckDomainService(run) < 0) return Checked(-1, "UserManager::SelfCheck CheckDomainService fail");
  if (BeginTransaction() < 0) return Checked(-1, "UserManager::SelfCheck BeginTransaction fail");
  // No rollback: the transaction stays open, and goes when the caller closes the manager.
  if (CheckUserInTransaction(run) < 0) return Checked(-1, "UserManager::SelfCheck CheckUser fail");
  if (EndTransaction() < 0) return Checked(-1, "UserManager::SelfCheck EndTransaction fail");
  ReportRemovals(run, removed_views);
  return 0;
}

}  // namespace user_mgr
