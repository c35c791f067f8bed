// The sessions of clients.
#include "db-util/query.h"
#include "user-mgr/user_manager.h"
#include "user-mgr/user_rows.h"

namespace user_mgr {
namespace {

constexpr char kSelectSession[] =
    "SELECT ut.view_id, ut.name, ut.attribute, st.ctime, st.client, st.ip, st.sess_id, st.group_id, ut.uid, ut.gid, "
    "ut.user_type, ut.watch_path, st.client_type, st.client_platform FROM session_table as st, user_table as ut ";

bool ReadSession(sqlite3_stmt* row, SessionRecord& session) {
  session.view_id = ColumnId(row, 0);
  session.attribute = sqlite3_column_int(row, 2);
  session.ctime = sqlite3_column_int64(row, 3);
  session.client = db_util::ColumnText(row, 4);
  session.ip = db_util::ColumnText(row, 5);
  session.sess_id = db_util::ColumnText(row, 6);
  session.group_id = sqlite3_column_int(row, 7);
  session.uid = ColumnUnsigned(row, 8);
  session.gid = ColumnUnsigned(row, 9);
  session.user_type = ColumnUserType(row, 10);
  session.watch_path = db_util::ColumnText(row, 11);
  session.client_type = sqlite3_column_int(row, 12);
  session.client_platform = db_util::ColumnText(row, 13);
  return ReadName(row, 1, session.user_type, session.name);
}

// Formats a query of sessions from its condition, and lists what it finds.
template <typename... Args>
bool SelectSessions(const char* operation, std::list<SessionRecord>& sessions,
                    const logger::SqlFormat<Args...>& condition, const Args&... args) {
  std::string query;
  return FormatStatement<Args...>(query, kSelectSession, condition, args...) &&
         ReadList<SessionRecord>(operation, query, &ReadSession, sessions);
}

const char* ColumnOf(SessionOrder order) {
  switch (order) {
    case SessionOrder::kUserName:
      return "ut.name";
    case SessionOrder::kClient:
      return "st.client";
    case SessionOrder::kIp:
      return "st.ip";
    case SessionOrder::kClientType:
      return "st.client_type";
    case SessionOrder::kClientPlatform:
      return "st.client_platform";
    case SessionOrder::kCreationTime:
      break;
  }
  return "st.ctime";
}

const char* WordOf(Direction direction) { return direction == Direction::kDescending ? "DESC" : "ASC"; }

}  // namespace

int UserManager::CreateSession(const std::string& stored_name, const ClientInfo& client,
                               const std::string& ip) {
  return ToResult(Check(
      Run("INSERT INTO session_table (sess_id, client, ip, group_id, client_type, client_platform, uid) VALUES"
          "                           (%Q, %Q, %Q, 1, %d, %Q, (SELECT id FROM user_table WHERE name = %Q ));",
          client.sess_id, client.client, ip, client.client_type, client.client_platform, stored_name),
      "UserManager::CreateSession fail to create session %s\n", client.sess_id));
}

int UserManager::GetSession(const std::string& sess_id, SessionRecord& session) {
  std::list<SessionRecord> found;
  const bool succeeded =
      SelectSessions("GetSession", found, "WHERE st.sess_id = %Q AND st.uid = ut.id;", sess_id);
  return ToResult(
      Check(succeeded, "UserManager::GetSession fail to get session %s\n", sess_id) &&
      TakeFirst(found, session, "UserManager::GetSession:: cannot file record for session %s\n", sess_id));
}

int UserManager::EnumSession(const SessionPage& page, std::list<SessionRecord>& sessions) {
  return ToResult(
      Check(SelectSessions("EnumSession", sessions, "WHERE ut.id = st.uid ORDER BY %q %q LIMIT %u OFFSET %u;",
                           ColumnOf(page.order), WordOf(page.direction), page.limit, page.offset),
            "UserManager::EnumSession fail\n"));
}

int UserManager::EnumSession(const std::string& stored_name, const SessionPage& page,
                             std::list<SessionRecord>& sessions) {
  return ToResult(Check(
      SelectSessions("EnumSession", sessions,
                     "WHERE ut.id = st.uid AND ut.name = %Q ORDER BY %q %q LIMIT %u OFFSET %u;", stored_name,
                     ColumnOf(page.order), WordOf(page.direction), page.limit, page.offset),
      "UserManager::EnumSession fail for user '%s'\n", stored_name));
}

int UserManager::CountSession(int& count) {
  return ToResult(Check(ReadCount("CountSession", "SELECT count(*) FROM session_table;", count),
                        "UserManager::CountSession fail\n"));
}

int UserManager::CountSession(const std::string& stored_name, int& count) {
  std::string query;
  const bool fits = FormatStatement(
      query, "",
      "SELECT COUNT(*) FROM session_table AS st WHERE st.uid = (SELECT id FROM user_table AS ut WHERE ut.name = %Q);",
      stored_name);
  return ToResult(Check(fits && ReadCount("CountSession", query, count),
                        "UserManager::CountSession fail for user '%s'\n", stored_name));
}

int UserManager::RemoveSession(const std::string& sess_id) {
  return ToResult(Check(Run("BEGIN TRANSACTION;"
                            "DELETE FROM session_table WHERE sess_id = %Q;"
                            "DELETE FROM backup_task_table WHERE session = %Q;"
                            "END TRANSACTION",
                            sess_id, sess_id),
                        "UserManager::RemoveSession fail to remove session %s\n", sess_id));
}

int UserManager::UpdateClient(const std::string& sess_id, const ClientInfo& client) {
  return ToResult(Check(
      Run("BEGIN TRANSACTION; "
          "UPDATE session_table SET client = %Q, sess_id = %Q, client_type = %d, client_platform = %Q WHERE sess_id = %Q; "
          "UPDATE backup_task_table SET session = %Q WHERE session = %Q; "
          "END TRANSACTION",
          client.client, client.sess_id, client.client_type, client.client_platform, sess_id, client.sess_id,
          sess_id),
      "UserManager::UpdateClient fail to update session %s\n", sess_id));
}

int UserManager::UpdateClientType(const std::string& sess_id, int client_type) {
  return ToResult(
      Check(Run("UPDATE session_table SET client_type = %d WHERE sess_id = %Q", client_type, sess_id),
            "UserManager::UpdateClientType fail to update session %s\n", sess_id));
}

int UserManager::ClearSession() {
  return ToResult(Check(Execute("BEGIN TRANSACTION; "
                                "DELETE FROM session_table; "
                                "DELETE FROM backup_task_table; "
                                "END TRANSACTION;"),
                        "UserManager::ClearSession fail\n"));
}

}  // namespace user_mgr
