#include "user-mgr/statement.h"

#include "db-util/query.h"
#include "user-mgr/access.h"

namespace user_mgr {

bool RefuseStatement(std::size_t length) {
  logger::ComponentError(kComponent, "statement of %zu bytes does not fit its buffer of %zu bytes\n", length,
                         kStatementBuffer);
  return false;
}

bool ExecuteOn(sqlite3* db, const std::string& script) {
  const db_util::Status status = db_util::Execute(db, script);
  return Check(status, "sqlite3_exec: %s (%d)\n", status.message, status.code);
}

bool ExecuteWithoutLock(const std::string& script) {
  sqlite3* db = Access::db();
  const bool may_begin = db != nullptr && sqlite3_get_autocommit(db) != 0;
  if (ExecuteOn(db, script)) return true;
  if (may_begin && sqlite3_get_autocommit(db) == 0) {
    (void)db_util::Execute(db, "ROLLBACK;");  // fails only when SQLite has rolled back already
  }
  return false;
}

bool Execute(const std::string& script) {
  const ScopedLock guard;
  return guard.may_go_on() && ExecuteWithoutLock(script);
}

bool ForEachRow(const char* operation, const std::string& query,
                const std::function<bool(sqlite3_stmt*)>& row) {
  const ScopedLock guard;
  if (!guard.may_go_on()) return false;
  const db_util::Status status = db_util::ForEachRow(Access::db(), query, row);
  return Check(status, "UserManager::%s: %s(%d): %s\n", operation, status.FailedCall(), status.code,
               status.message);
}

std::size_t TextBytes(sqlite3_stmt* row) {
  std::size_t bytes = 0;
  for (int column = 0; column < sqlite3_column_count(row); ++column) {
    const int type = sqlite3_column_type(row, column);
    if (type == SQLITE_TEXT || type == SQLITE_BLOB) {
      bytes += static_cast<std::size_t>(sqlite3_column_bytes(row, column));
    }
  }
  return bytes;
}

bool ReadCount(const char* operation, const std::string& query, int& count) {
  return ForEachRow(operation, query, [&count](sqlite3_stmt* row) {
    count = sqlite3_column_int(row, 0);
    return false;
  });
}

}  // namespace user_mgr
