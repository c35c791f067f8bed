// Building and running the statements of the layer.
//
// The steps here return true on success, and false after logging why. The operations of UserManager turn that
// into their integers.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <list>
#include <string>

#include "db-util/execute.h"
#include "user-mgr/component.h"

namespace user_mgr {

// The size of the buffer for a statement with parameters, its final zero byte included.
inline constexpr std::size_t kStatementBuffer = 1024;

// Logs that a statement is too long, and returns false.
[[nodiscard]] bool RefuseStatement(std::size_t length);

// Puts the arguments into `format`, behind `head`. Fails when the statement does not fit the buffer: one that
// is cut could lose its condition, and would then change everybody's rows.
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

// Executes a whole script on a connection. It stops at the statement that fails, with the transaction that it
// began still open.
[[nodiscard]] bool ExecuteOn(sqlite3* db, const std::string& script);
// The same on the manager's connection, without the lock. A transaction that a failed script began is rolled
// back; one that was open before stays open.
[[nodiscard]] bool ExecuteWithoutLock(const std::string& script);
// The same under the lock.
[[nodiscard]] bool Execute(const std::string& script);

// Formats a statement with parameters and executes it under the lock.
template <typename... Args>
[[nodiscard]] bool Run(const logger::SqlFormat<Args...>& format, const Args&... args) {
  std::string statement;
  return FormatStatement<Args...>(statement, "", format, args...) && Execute(statement);
}

// Runs a query under the lock and calls `row` for each row until that returns false. A failure is logged as
// "UserManager::<operation>: sqlite3_prepare_v2(<code>): <message>\n", or the same of sqlite3_step.
[[nodiscard]] bool ForEachRow(const char* operation, const std::string& query,
                              const std::function<bool(sqlite3_stmt*)>& row);

// No list holds more text than this: one row may have many MiB, and what is not SQLite's is outside of the
// limit of its memory.
inline constexpr std::size_t kMostListBytes = std::size_t{128} << 20U;

// The bytes of the row's texts.
[[nodiscard]] std::size_t TextBytes(sqlite3_stmt* row);

// Runs a query and puts what `read` makes of its rows into `list`, in place of what it held; rows for which
// `read` returns false are left out. After a failure the list is as it was.
template <typename Record>
[[nodiscard]] bool ReadList(const char* operation, const std::string& query,
                            bool (*read)(sqlite3_stmt*, Record&), std::list<Record>& list) {
  std::list<Record> records;
  std::size_t text = 0;
  const bool complete = ForEachRow(operation, query,
                                   [&](sqlite3_stmt* row) {
                                     text += TextBytes(row);
                                     if (text > kMostListBytes) return false;
                                     Record record;
                                     if (read(row, record)) records.push_back(std::move(record));
                                     return true;
                                   }) &&
                        Check(text <= kMostListBytes, "UserManager::%s: the rows hold more than %zu bytes\n",
                              operation, kMostListBytes);
  if (complete) list.swap(records);
  return complete;
}

// Moves the first of the records that a query found into `record`. When there is none, it leaves `record` as
// it was, logs `none` at level info, and fails.
template <typename Record, typename... Args>
[[nodiscard]] bool TakeFirst(std::list<Record>& found, Record& record,
                             const logger::PrintfFormat<Args...>& none, const Args&... args) {
  if (found.empty()) {
    logger::ComponentLog<Args...>(kComponent, logger::Level::kInfo, none, args...);
    return false;
  }
  record = std::move(found.front());
  return true;
}

// The single number that a query yields.
[[nodiscard]] bool ReadCount(const char* operation, const std::string& query, int& count);

}  // namespace user_mgr
