// Scripts of the updaters, whose failures are logged with the whole text.
#pragma once

#include <sqlite3.h>

#include <string>

#include "db-util/execute.h"
#include "logger/format.h"

namespace updater {

// A message with a longer statement than this may lose its end in a log, and with it the reason.
inline constexpr std::size_t kLongStatement = 512;

// Follows the line that a failed statement is logged in. When the statement is longer than kLongStatement, or
// a file is damaged, it logs "Strato Folder Updater(%d): <updater>, <database>: <message> (<code>)\n".
void LogReasonBehind(const std::string& statement, const db_util::Status& failure);

// Passes on whether a script went well. If not, it logs "Strato Folder Updater(%d): sqlite3_exec(%s): %s
// (%d)\n" with `logged`, SQLite's message and its code, and the reason behind it.
[[nodiscard]] bool CheckScript(const db_util::Status& status, const std::string& logged);

// The script as one transaction.
[[nodiscard]] inline std::string InTransaction(const std::string& script) {
  return "BEGIN TRANSACTION;" + script + "END TRANSACTION;";
}

// Executes text that is complete, and never used as a format. Returns 0, or -1 after CheckScript() with the
// text.
[[nodiscard]] int ExecScript(sqlite3* db, const std::string& text);

// The same for a text that holds statements of no interest to a reader, or in another order: a failure is
// logged with `logged` in its place.
[[nodiscard]] int ExecScriptAs(sqlite3* db, const std::string& text, const std::string& logged);

// Executes a statement that only makes others faster. One that SQLite refuses (there is no such table) is
// success; any other failure may have damaged a database that has no journal. Results as ExecScript().
[[nodiscard]] int ExecForSpeed(sqlite3* db, const std::string& statement);

// Logs "Strato Folder Updater(%d): sqlite3_vmprintf: %s (%d)\n".
void LogFormatFailure(sqlite3* db);

// Formats once, then executes as ExecScript does. When the text cannot be made it returns -1 after
// LogFormatFailure().
template <typename... Args>
[[nodiscard]] int ExecSql(sqlite3* db, const logger::SqlFormat<Args...>& format, const Args&... args) {
  std::string text;
  if (db_util::FormatSql<Args...>(text, format, args...)) return ExecScript(db, text);
  LogFormatFailure(db);
  return -1;
}

}  // namespace updater
