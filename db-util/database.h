// SQLite handles and the operations that open a database and execute statements on it.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

#include "logger/format.h"

namespace db_util {

struct CloseDatabase {
  // Every statement of the connection is finalized by then, so closing cannot be refused.
  void operator()(sqlite3* db) const noexcept { (void)sqlite3_close(db); }
};

// An open connection, owned. Null when not connected.
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

enum class OpenMode {
  kCreate,     // read and write, created when it does not exist
  kReadWrite,  // read and write, must exist
  kReadOnly,   // must exist
};

// How long a connection waits for another one's lock, in milliseconds.
inline constexpr int kBusyTimeoutMs = 300000;

// Opens the database `path` into `out`. Returns 0, or -1 with `out` null: for an empty path without a
// message, otherwise after logging "StratoFolder: Open database: %s failed (error code %d)\n" to the system
// log. That the file is a database is not checked here: SQLite reads it with the first statement.
[[nodiscard]] int OpenDatabase(const std::string& path, Database& out, OpenMode mode = OpenMode::kCreate);

// The same without any message; returns SQLite's result code.
[[nodiscard]] int OpenQuietly(const std::string& path, Database& out, OpenMode mode);

// Opens the file that is open as `file` and was made at `path`; whatever somebody has put there since is
// refused with SQLITE_CANTOPEN. No message; returns SQLite's result code. `file` is to be closed before the
// first statement: closing it gives up the locks of the whole process.
[[nodiscard]] int OpenExactly(const std::string& path, int file, OpenMode mode, Database& out);

// Opens `path` as a new empty database that nobody else can have prepared: whatever stands there, and its
// companion files, are unlinked first, the file is made exclusively with mode 0600, and links are not
// followed. Results and message as OpenDatabase.
[[nodiscard]] int OpenScratchDatabase(const std::string& path, Database& out);

// Why a script failed.
struct ExecFailure {
  int code = SQLITE_OK;
  std::string message;   // SQLite's
  std::string database;  // what the failing statement works on: "data_db (/path), user_db (/path)"
};

// Executes all statements of `text` without logging. Returns SQLite's result code, and the reason in
// `failure` when it is not SQLITE_OK. A script stops at its failing statement; what ran before stays, and a
// transaction that the script began stays open.
[[nodiscard]] int Execute(sqlite3* db, const std::string& text, ExecFailure& failure);
// The same for callers who only want SQLite's message.
[[nodiscard]] int Execute(sqlite3* db, const std::string& text, std::string& error);

// A message with a longer statement than this may lose its end in a log, and with it the reason.
inline constexpr std::size_t kLongStatement = 512;

// Follows the line that a failed statement is logged in. When the statement is longer than kLongStatement, or
// a file is damaged, it logs "Strato Folder Updater(%d): <updater>, <database>: <message> (<code>)\n".
void LogReasonBehind(const std::string& statement, const ExecFailure& failure);

// Logs "Strato Folder Updater(%d): sqlite3_exec(%s): %s (%d)\n" with the text, the message and the code, and
// the reason behind it.
void LogExecFailure(const std::string& text, const ExecFailure& failure);

// Executes text that is complete, and never used as a format. Returns 0, or -1 after
// LogExecFailure().
[[nodiscard]] int ExecScript(sqlite3* db, const std::string& text);

// The same for a text that holds statements of no interest to a reader, or in another order: a failure is
// logged with `logged` in its place.
[[nodiscard]] int ExecScriptAs(sqlite3* db, const std::string& text, const std::string& logged);

// `format` with its arguments put in by SQLite's printf (%Q quotes, %q escapes). Returns false, with `out`
// unchanged, when SQLite could not make the text.
template <typename... Args>
[[nodiscard]] bool FormatSql(std::string& out, const logger::SqlFormat<Args...>& format,
                             const Args&... args) {
  const std::unique_ptr<char, decltype(&sqlite3_free)> text(
      sqlite3_mprintf(format.text(), logger::VariadicArgument(args)...), &sqlite3_free);
  if (!text) return false;
  out = text.get();
  return true;
}

namespace internal {
void LogFormatFailure(sqlite3* db);
}

// Formats once, then executes as ExecScript does. When the text cannot be made it logs
// "Strato Folder Updater(%d): sqlite3_vmprintf: %s (%d)\n" and returns -1.
template <typename... Args>
[[nodiscard]] int ExecSql(sqlite3* db, const logger::SqlFormat<Args...>& format, const Args&... args) {
  std::string text;
  if (!FormatSql<Args...>(text, format, args...)) {
    internal::LogFormatFailure(db);
    return -1;
  }
  return ExecScript(db, text);
}

}  // namespace db_util
