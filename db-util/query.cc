#include "db-util/query.h"

#include "db-util/hardening.h"

namespace db_util {

Status ForEachRow(sqlite3* db, const std::string& sql, const std::function<bool(sqlite3_stmt*)>& row) {
  WorkLimit limit;
  sqlite3_stmt* prepared = nullptr;
  int code = sqlite3_prepare_v2(db, sql.c_str(), -1, &prepared, nullptr);
  const Statement statement(prepared);
  if (code != SQLITE_OK) return FailureOf(db, code, Status::Call::kPrepare);
  limit.AllowForRows(db);
  while ((code = sqlite3_step(prepared)) == SQLITE_ROW) {
    if (!row(prepared)) return {};
  }
  if (code != SQLITE_DONE) return FailureOf(db, code, Status::Call::kStep);
  return {};
}

std::string ColumnText(sqlite3_stmt* statement, int column) {
  const void* text = sqlite3_column_text(statement, column);
  return text == nullptr ? std::string() : static_cast<const char*>(text);
}

bool ReadWholeText(sqlite3_stmt* statement, int column, std::string& text) {
  if (sqlite3_column_type(statement, column) != SQLITE_TEXT) return false;
  text = ColumnText(statement, column);
  return text.size() == static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
}

bool ReadWholeTextOrNull(sqlite3_stmt* statement, int column, std::string& text) {
  if (sqlite3_column_type(statement, column) != SQLITE_NULL) return ReadWholeText(statement, column, text);
  text.clear();
  return true;
}

Status QueryInt(sqlite3* db, const std::string& sql, int& out) {
  return ForEachRow(db, sql, [&out](sqlite3_stmt* statement) {
    out = sqlite3_column_int(statement, 0);
    return false;
  });
}

Status QueryInt(sqlite3* db, const std::string& sql, sqlite3_int64& out) {
  return ForEachRow(db, sql, [&out](sqlite3_stmt* statement) {
    out = sqlite3_column_int64(statement, 0);
    return false;
  });
}

}  // namespace db_util
