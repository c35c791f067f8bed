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
  std::string error;
  const int code = db_util::Execute(Access::db(), kCreateIndexes, error);
  // A table or column that does not exist is for the check itself to find; it would only be slower.
  if (code == SQLITE_OK || code == SQLITE_ERROR) return 0;
  return Checked(-1, "UserManager::SelfCheck fail to create indexes: %s (%d)\n", error, code);
}

int DropIndexes() {
  return Checked(ExecuteWithoutLock(kDropIndexes), "UserManager::SelfCheck fail to drop indexes\n");
}

int CheckLdapService(const platform::Platform& platform) {
  if (platform.services.IsLdapEnabled()) return 0;
  return Checked(UserManager::DeleteUserByUserType(UserType::kLdap),
                 "UserManager::CheckLdapService DeleteUserByUserType fail (LDAP)");
}

int CheckDomainService(const platform::Platform& platform) {
  if (platform.services.IsDomainEnabled()) return 0;
  // The message names the LDAP check for the domain, too.
  return Checked(UserManager::DeleteUserByUserType(UserType::kDomain),
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

// `rows` is what the statement yielded, share users without "@" included, which the page leaves out.
int ReadPage(unsigned offset, UserList& page, unsigned& rows) {
  page.clear();
  rows = 0;
  std::string query;
  if (!FormatStatement(query, kSelectUser, " LIMIT %u OFFSET %u;", kPageRows, offset)) return -1;
  return ForEachRow("EnumUser", query, [&](sqlite3_stmt* row) {
    ++rows;
    UserRecord user;
    if (ReadUser(row, user)) page.push_back(std::move(user));
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

// The users inside the transaction. The indexes go in any case: a caller may still end it after a failure.
int CheckUserWithIndexes(CheckRun& run) {
  if (CreateIndexes() < 0) return -1;
  const int checked = CheckUser(run);
  return DropIndexes() < 0 ? -1 : checked;
}

}  // namespace

int UserManager::SelfCheck(std::list<ViewId>& removed_views) {
  if (platform_ == nullptr) return Checked(-1, "UserManager::SelfCheck: no platform was configured\n");
  if (CheckLdapService(*platform_) < 0) return Checked(-1, "UserManager::SelfCheck CheckLdapService fail");
  if (CheckDomainService(*platform_) < 0)
    return Checked(-1, "UserManager::SelfCheck CheckDomainService fail");
  if (BeginTransaction() < 0) return Checked(-1, "UserManager::SelfCheck BeginTransaction fail");
  CheckRun run(*platform_);
  // No rollback: the transaction stays open, and goes when the caller closes the manager.
  if (CheckUserWithIndexes(run) < 0) return Checked(-1, "UserManager::SelfCheck CheckUser fail");
  if (EndTransaction() < 0) return Checked(-1, "UserManager::SelfCheck EndTransaction fail");
  removed_views.splice(removed_views.end(), run.removed_views);
  return 0;
}

}  // namespace user_mgr
