#include "updater/framework/exec_sql.h"

#include "updater/framework/updater_log.h"

namespace updater {

void LogReasonBehind(const std::string& statement, const db_util::Status& failure) {
  // Of a file that is damaged SQLite does not say which of several it is.
  const bool is_damaged =
      failure.code == SQLITE_NOTADB || failure.code == SQLITE_CORRUPT || failure.code == SQLITE_IOERR;
  if (statement.size() <= kLongStatement && !is_damaged) return;
  constexpr std::size_t kLongestPart = 400;  // paths and messages may be long; the line may not
  UpdaterLog("%s, %s: %s (%d)\n", UpdaterAtWork(), logger::CutInTheMiddle(failure.database, kLongestPart),
             logger::CutInTheMiddle(failure.message, kLongestPart), failure.code);
}

bool CheckScript(const db_util::Status& status, const std::string& logged) {
  if (Check(status, "sqlite3_exec(%s): %s (%d)\n", logged, status.message, status.code)) return true;
  LogReasonBehind(logged, status);
  return false;
}

int ExecScript(sqlite3* db, const std::string& text) { return ExecScriptAs(db, text, text); }

int ExecScriptAs(sqlite3* db, const std::string& text, const std::string& logged) {
  return logger::ToResult(CheckScript(db_util::Execute(db, text), logged));
}

int ExecForSpeed(sqlite3* db, const std::string& statement) {
  const db_util::Status status = db_util::Execute(db, statement);
  return logger::ToResult(status.code == SQLITE_ERROR || CheckScript(status, statement));
}

void LogFormatFailure(sqlite3* db) {
  UpdaterLog("sqlite3_vmprintf: %s (%d)\n", std::string(sqlite3_errmsg(db)), 0);
}

}  // namespace updater
