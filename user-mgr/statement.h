// Building and running the statements of the layer.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <list>
#include <string>

#include "db-util/execute.h"
#include "logger/component_log.h"

namespace user_mgr {

inline constexpr logger::Component kComponent = {"user_mgr_debug", "user-mgr"};

// The size of the buffer for a statement with parameters, its final zero byte included.
inline constexpr std::size_t kStatementBuffer = 1024;

// Logs that a statement is too long, and returns false.
bool RefuseStatement(std::size_t length);

// Puts the arguments into `format`, behind `head`. Returns false when the statement does not fit the buffer:
// one that is cut could lose its condition, and would then change everybody's rows.
template <typename... Args>
[[nodiscard]] bool FormatStatement(std::string& statement, const std::string& head,
                                   const logger::SqlFormat<Args...>& format, const Args&... args) {
  std::string text;
  if (!db_util::FormatSql<Args...>(text, format, args...)) return RefuseStatement(0);
  text.insert(0, head);
  if (text.size() >= kStatementBuffer) return RefuseStatement(text.size());
  statement = std::move(text);
  return true;
}

// Executes a whole script without the lock. Returns 0, or -1 after logging SQLite's message; a transaction
// that the script began is rolled back then, one of the caller stays open.
[[nodiscard]] int ExecuteWithoutLock(const std::string& script);
// The same under the lock.
[[nodiscard]] int Execute(const std::string& script);

// Formats a statement with parameters and executes it under the lock. Returns 0, or -1 after logging why.
template <typename... Args>
[[nodiscard]] int Run(const logger::SqlFormat<Args...>& format, const Args&... args) {
  std::string statement;
  return FormatStatement<Args...>(statement, "", format, args...) ? Execute(statement) : -1;
}

// Passes the result of an operation on, as 0 or -1; logs `failure` for a negative one.
template <typename... Args>
[[nodiscard]] int Checked(int result, const logger::PrintfFormat<Args...>& failure, const Args&... args) {
  if (result >= 0) return 0;
  logger::ComponentError<Args...>(kComponent, failure, args...);
  return -1;
}

// Runs a query under the lock and calls `row` for each row. Returns 0, or -1 after logging
// "UserManager::<operation>: sqlite3_prepare_v2(<code>): <message>\n", or the same of sqlite3_step.
[[nodiscard]] int ForEachRow(const char* operation, const std::string& query,
                             const std::function<void(sqlite3_stmt*)>& row);

// Runs a query and puts what `read` makes of its rows into `list`, in place of what it held; rows for which
// `read` returns false are left out. After a failure the list is as it was.
template <typename Record>
[[nodiscard]] int ReadList(const char* operation, const std::string& query,
                           bool (*read)(sqlite3_stmt*, Record&), std::list<Record>& list) {
  std::list<Record> records;
  const int result = ForEachRow(operation, query, [&](sqlite3_stmt* row) {
    Record record;
    if (read(row, record)) records.push_back(std::move(record));
  });
  if (result == 0) list.swap(records);
  return result;
}

// The single number that a query yields.
[[nodiscard]] int ReadCount(const char* operation, const std::string& query, int& count);

}  // namespace user_mgr
