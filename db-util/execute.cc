#include "db-util/execute.h"

#include <cctype>
#include <map>
#include <string_view>

#include "db-util/hardening.h"
#include "db-util/query.h"

namespace db_util {
namespace {

// Where `sql` uses the schema, as in "data_db.config_table"; npos when it does not.
std::size_t FindSchema(std::string_view sql, const std::string& schema) {
  const auto is_name = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; };
  std::size_t found = sql.find(schema + ".");
  while (found != std::string_view::npos && found > 0 && is_name(sql[found - 1])) {
    found = sql.find(schema + ".", found + 1);  // the end of a longer name
  }
  return found;
}

std::string WithPath(sqlite3* db, const char* schema) {
  const char* const path = sqlite3_db_filename(db, schema);
  return std::string(schema) + " (" + (path == nullptr ? "" : path) + ")";
}

// The databases that `sql` names, in its order; empty when it names none.
std::string DatabasesIn(sqlite3* db, std::string_view sql) {
  std::map<std::size_t, std::string> found;
  const char* schema = nullptr;
  for (int i = 0; (schema = sqlite3_db_name(db, i)) != nullptr; ++i) {
    const std::size_t position = FindSchema(sql, schema);
    if (position != std::string_view::npos) found.emplace(position, WithPath(db, schema));
  }
  std::string databases;
  for (const auto& [position, database] : found) {
    if (!databases.empty()) databases += ", ";
    databases += database;
  }
  return databases;
}

// Such a statement reads a schema, and no rows.
bool IsAttach(std::string_view sql) { return sql.starts_with("ATTACH "); }

// What the statement at the beginning of `rest` works on. A COMMIT names nothing and stands for its script; a
// script that names nothing has one database.
std::string DescribeDatabase(sqlite3* db, std::string_view rest, const std::string& script) {
  const std::string_view statement = rest.substr(0, rest.find(';'));
  if (IsAttach(statement)) return std::string(statement);
  std::string databases = DatabasesIn(db, statement);
  if (databases.empty()) databases = DatabasesIn(db, script);
  return databases.empty() ? WithPath(db, "main") : databases;
}

// Runs the first statement of `rest` to its end and moves `rest` behind it. Returns SQLite's result code.
int ExecuteFirst(sqlite3* db, const char*& rest) {
  WorkLimit limit;
  sqlite3_stmt* prepared = nullptr;
  const char* const sql = rest;
  const char* end = rest;
  int code = sqlite3_prepare_v2(db, sql, -1, &prepared, &end);
  const Statement statement(prepared);
  if (code != SQLITE_OK) return code;
  rest = end;
  if (prepared == nullptr) return SQLITE_OK;  // blanks behind the last statement
  if (!IsAttach(sql)) limit.AllowForRows(db);
  while ((code = sqlite3_step(prepared)) == SQLITE_ROW) {
  }
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

}  // namespace

// Not sqlite3_exec(), which does the same but does not tell the statement that failed.
Status Execute(sqlite3* db, const std::string& text) {
  if (db == nullptr) return StatusOf(SQLITE_MISUSE);
  const char* rest = text.c_str();
  while (*rest != '\0') {
    const char* const statement = rest;
    const int code = ExecuteFirst(db, rest);
    if (code == SQLITE_OK) continue;
    Status failure = FailureOf(db, code, Status::Call::kOther);
    failure.database = DescribeDatabase(db, statement, text);
    return failure;
  }
  return {};
}

}  // namespace db_util
