// Adding, changing, removing, finding and counting users.
#include "user-mgr/access.h"
#include "user-mgr/user_manager.h"
#include "user-mgr/user_rows.h"

namespace user_mgr {
namespace {

constexpr int kShareType = static_cast<int>(UserType::kShare);

// Formats a query of users from its condition, and lists what it finds.
template <typename... Args>
bool SelectUsers(UserList& users, const logger::SqlFormat<Args...>& condition, const Args&... args) {
  std::string query;
  return FormatStatement<Args...>(query, kSelectUser, condition, args...) && EnumUser(query, users);
}

// The first user that a query found, if it succeeded. `whom` and `value` name the user in messages.
bool TakeUser(const char* operation, bool succeeded, UserList& found, const char* whom,
              const std::string& value, UserRecord& user) {
  return Check(succeeded, "UserManager::%s fail to get %s '%s'\n", operation, whom, value) &&
         TakeFirst(found, user, "UserManager::%s: there is no %s '%s'\n", operation, whom, value);
}

template <typename... Args>
bool CountEnabled(int& count, const logger::SqlFormat<Args...>& condition, const Args&... args) {
  std::string query;
  const bool fits = FormatStatement<Args...>(
      query, "SELECT count(*) FROM user_table WHERE (attribute & 9) = 0", condition, args...);
  return Check(fits && ReadCount("CountEnabledUser", query, count), "UserManager::CountEnabledUser fail\n");
}

}  // namespace

int UserManager::AddUser(const UserRecord& user) {
  return ToResult(Check(
      Run("BEGIN;"
          "INSERT OR IGNORE INTO user_table (name, attribute, view_id, uid, gid, user_type, watch_path) "
          "VALUES (%Q, %d, (SELECT value FROM config_table WHERE key = 'view_id'), %u, %u, %u, %Q);"
          "UPDATE config_table SET value = value + 1 WHERE changes() = 1 AND key = 'view_id';"
          "END;",
          StoredName(user.user_type, user.name), user.attribute, user.uid, user.gid,
          static_cast<unsigned>(user.user_type), user.watch_path),
      "UserManager::AddUser fail to add user '%s'\n", user.name));
}

int UserManager::RemoveUser(const std::string& name) {
  return ToResult(Check(
      Run("BEGIN TRANSACTION; "
          "DELETE FROM backup_task_table WHERE session in (SELECT sess_id FROM session_table WHERE uid = (SELECT id FROM user_table WHERE name = %Q ));"
          "DELETE FROM session_table WHERE uid = (SELECT id FROM user_table WHERE name = %Q );"
          "DELETE FROM user_table WHERE name = %Q AND NOT (user_type = %d);"
          "END TRANSACTION; ",
          name, name, name, kShareType),
      "UserManager::RemoveUser fail to remove user '%s'\n", name));
}

int UserManager::RemoveShareUser(const std::string& share_name) {
  const std::string name = StoredName(UserType::kShare, share_name);
  return ToResult(Check(
      Run("DELETE FROM rotate_setting_table WHERE view_id = \t(SELECT view_id FROM user_table WHERE name = %Q AND (user_type = %d)); "
          "DELETE FROM user_table WHERE name = %Q AND (user_type = %d);",
          name, kShareType, name, kShareType),
      "UserManager::RemoveShareUser fail to remove share user '%s'\n", share_name));
}

int UserManager::DeleteUserByUserType(UserType type) {
  const int number = static_cast<int>(type);
  return ToResult(Check(
      Run("BEGIN TRANSACTION; "
          "DELETE FROM backup_task_table WHERE session IN (SELECT sess_id FROM session_table WHERE uid in (SELECT id FROM user_table WHERE user_type = %d));"
          "DELETE FROM session_table WHERE uid in (SELECT id FROM user_table WHERE user_type = %d);"
          "DELETE FROM user_table WHERE user_type = %d;"
          "END TRANSACTION;",
          number, number, number),
      "UserManager::DeleteUserByUserType fail to delete users of type %d\n", number));
}

int UserManager::RenameUser(const std::string& name, const std::string& new_name) {
  return ToResult(Check(Run("UPDATE user_table SET name = %Q WHERE name = %Q;", new_name, name),
                        "UserManager::RenameUser fail to rename user '%s' to '%s'\n", name, new_name));
}

int UserManager::GetUserByViewId(ViewId view_id, UserRecord& user) {
  UserList found;
  const bool succeeded = SelectUsers(found, " WHERE view_id = %llu;", view_id);
  return ToResult(
      TakeUser("GetUserByViewId", succeeded, found, "user of view", std::to_string(view_id), user));
}

int UserManager::GetUser(const std::string& name, UserRecord& user) {
  UserList found;
  const bool succeeded = SelectUsers(found, "WHERE NOT (user_type = %d) AND name = %Q;", kShareType, name);
  return ToResult(TakeUser("GetUser", succeeded, found, "user", name, user));
}

int UserManager::GetShareUser(const std::string& share_name, UserRecord& user) {
  UserList found;
  const bool succeeded = SelectUsers(found, " where (user_type = %d) AND name = %Q;", kShareType,
                                     StoredName(UserType::kShare, share_name));
  return ToResult(TakeUser("GetShareUser", succeeded, found, "share user", share_name, user));
}

int UserManager::EnumAllUser(UserList& users) { return ToResult(EnumUser(kSelectUser, users)); }

int UserManager::EnumShareUser(bool ordered_by_name, UserList& users) {
  const char* order = ordered_by_name ? "ORDER BY name " : "";
  return ToResult(Check(SelectUsers(users, " WHERE (user_type = %d) %s;", kShareType, order),
                        "UserManager::EnumShareUser fail\n"));
}

int UserManager::EnumUserByType(UserType type, UserList& users) {
  return ToResult(Check(SelectUsers(users, "WHERE user_type = %d;", static_cast<int>(type)),
                        "UserManager::EnumUserByType fail\n"));
}

int UserManager::CountEnabledUser(UserType type, int& count) {
  return ToResult(CountEnabled(count, " AND (user_type = %d )", static_cast<int>(type)));
}

int UserManager::CountEnabledUserExcept(UserType type, int& count) {
  return ToResult(CountEnabled(count, " AND NOT (user_type = %d )", static_cast<int>(type)));
}

int UserManager::DisableUser(const std::string& stored_name, int mask) {
  return ToResult(
      Check(Run("UPDATE user_table SET attribute = attribute | %d WHERE name = %Q;", mask, stored_name),
            "UserManager::DisableUser fail to disable user '%s'\n", stored_name));
}

int UserManager::DisableUser(const std::string& stored_name, int mask, UserType type, UserType other) {
  return ToResult(Check(
      Run("UPDATE user_table SET attribute = attribute | %d WHERE name = %Q AND (user_type=%d OR user_type=%d);",
          mask, stored_name, static_cast<int>(type), static_cast<int>(other)),
      "UserManager::DisableUser fail to disable user '%s'\n", stored_name));
}

int UserManager::EnableUser(const std::string& stored_name, int mask) {
  return ToResult(
      Check(Run("UPDATE user_table SET attribute = (attribute & %d) WHERE name = %Q ;", ~mask, stored_name),
            "UserManager::EnableUser fail to enable user '%s'\n", stored_name));
}

int UserManager::EnableUser(const std::string& stored_name, int mask, UserType type, UserType other) {
  return ToResult(Check(
      Run("UPDATE user_table SET attribute = (attribute & %d) WHERE name = %Q  AND (user_type=%d OR user_type=%d);",
          ~mask, stored_name, static_cast<int>(type), static_cast<int>(other)),
      "UserManager::EnableUser fail to enable user '%s'\n", stored_name));
}

int UserManager::SetUserAttribute(const std::string& stored_name, int attribute) {
  return ToResult(Check(Run("UPDATE user_table SET attribute = %d WHERE name = %Q;", attribute, stored_name),
                        "UserManager::SetUserAttribute fail to set the attribute of user '%s'\n",
                        stored_name));
}

}  // namespace user_mgr
