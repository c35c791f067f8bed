#include "user-mgr/statement.h"

#include "db-util/query.h"
#include "user-mgr/access.h"

namespace user_mgr {

bool RefuseStatement(std::size_t length) {
  logger::ComponentError(kComponent, "statement of %zu bytes does not fit its buffer of %zu bytes\n", length,
                         kStatementBuffer);
  return false;
}

int ExecuteWithoutLock(const std::string& script) {
  sqlite3* db = Access::db();
  const bool may_begin = db != nullptr && sqlite3_get_autocommit(db) != 0;
  std::string error;
  const int code = db_util::Execute(db, script, error);
  if (code == SQLITE_OK) return 0;
  logger::ComponentError(kComponent, "sqlite3_exec: %s (%d)\n", error, code);
  if (may_begin && sqlite3_get_autocommit(db) == 0) {
    (void)db_util::Execute(db, "ROLLBACK;", error);  // fails only when SQLite has rolled back already
  }
  return -1;
}

int Execute(const std::string& script) {
  const ScopedLock guard;
  return ExecuteWithoutLock(script);
}

int ForEachRow(const char* operation, const std::string& query,
               const std::function<void(sqlite3_stmt*)>& row) {
  const ScopedLock guard;
  const db_util::QueryResult result =
      db_util::ForEachRow(Access::db(), query, [&row](sqlite3_stmt* statement) {
        row(statement);
        return true;
      });
  if (result.ok()) return 0;
  if (result.failed_at == db_util::QueryResult::Stage::kPrepare) {
    logger::ComponentError(kComponent, "UserManager::%s: sqlite3_prepare_v2(%d): %s\n", operation,
                           result.code, result.message);
  } else {
    logger::ComponentError(kComponent, "UserManager::%s: sqlite3_step(%d): %s\n", operation, result.code,
                           result.message);
  }
  return -1;
}

int ReadCount(const char* operation, const std::string& query, int& count) {
  return ForEachRow(operation, query, [&count](sqlite3_stmt* row) { count = sqlite3_column_int(row, 0); });
}

}  // namespace user_mgr
