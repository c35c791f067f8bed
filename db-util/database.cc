#include "db-util/database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <map>
#include <string_view>

#include "base/file_descriptor.h"
#include "db-util/database_files.h"
#include "db-util/guarded_files.h"
#include "db-util/query.h"
#include "logger/updater_log.h"

namespace db_util {
namespace {

int OpenFlags(OpenMode mode) {
  switch (mode) {
    case OpenMode::kCreate:
      return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    case OpenMode::kReadWrite:
      return SQLITE_OPEN_READWRITE;
    case OpenMode::kReadOnly:
      break;
  }
  return SQLITE_OPEN_READONLY;
}

int LogOpenFailure(const std::string& path, int code) {
  logger::SystemLog("StratoFolder: Open database: %s failed (error code %d)\n", path, code);
  return -1;
}

// True when this process has the file open a second time, by whatever path. Descriptors are handed out lowest
// first, so one that was made just before is below the next free one.
bool IsOpenTwice(int file) {
  const base::FileDescriptor next(fcntl(file, F_DUPFD_CLOEXEC, 0));
  struct stat wanted {};
  if (!next.is_open() || fstat(file, &wanted) < 0) return false;
  for (int fd = 0; fd < next.get(); ++fd) {
    struct stat status {};
    if (fd != file && fstat(fd, &status) == 0 && status.st_dev == wanted.st_dev &&
        status.st_ino == wanted.st_ino) {
      return true;
    }
  }
  return false;
}

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

// What the statement at the beginning of `rest` works on. A COMMIT names nothing and stands for its script; a
// script that names nothing has one database.
std::string DescribeDatabase(sqlite3* db, std::string_view rest, const std::string& script) {
  const std::string_view statement = rest.substr(0, rest.find(';'));
  if (statement.starts_with("ATTACH ")) return std::string(statement);
  std::string databases = DatabasesIn(db, statement);
  if (databases.empty()) databases = DatabasesIn(db, script);
  return databases.empty() ? WithPath(db, "main") : databases;
}

// Runs the first statement of `rest` to its end and moves `rest` behind it. Returns SQLite's result code.
int ExecuteFirst(sqlite3* db, const char*& rest) {
  sqlite3_stmt* prepared = nullptr;
  const char* end = rest;
  int code = sqlite3_prepare_v2(db, rest, -1, &prepared, &end);
  const Statement statement(prepared);
  if (code != SQLITE_OK) return code;
  rest = end;
  if (prepared == nullptr) return SQLITE_OK;  // blanks behind the last statement
  while ((code = sqlite3_step(prepared)) == SQLITE_ROW) {
  }
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

}  // namespace

int OpenQuietly(const std::string& path, Database& out, OpenMode mode) {
  out.reset();
  sqlite3* db = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &db, OpenFlags(mode), GuardedFiles());
  Database opened(db);  // SQLite hands out a handle with most failures too
  if (code == SQLITE_OK) out = std::move(opened);
  return code;
}

int OpenDatabase(const std::string& path, Database& out, OpenMode mode) {
  out.reset();
  if (path.empty()) return -1;
  const int code = OpenQuietly(path, out, mode);
  return code == SQLITE_OK ? 0 : LogOpenFailure(path, code);
}

int OpenExactly(const std::string& path, int file, OpenMode mode, Database& out) {
  const int code = OpenQuietly(path, out, mode);
  if (code != SQLITE_OK || IsOpenTwice(file)) return code;
  out.reset();
  return SQLITE_CANTOPEN;
}

int OpenScratchDatabase(const std::string& path, Database& out) {
  out.reset();
  if (path.empty()) return -1;
  for (const std::string& file : DatabaseFiles(path)) {
    (void)unlink(file.c_str());  // the exclusive creation below tells whether it worked
  }
  const base::FileDescriptor created(
      open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!created.is_open()) return LogOpenFailure(path, SQLITE_CANTOPEN);
  // ATTACH inherits the flags: without the one for creation it could not make a database that is missing, and
  // with the one against links it would refuse a volume that is reached through one.
  const int code = OpenExactly(path, created.get(), OpenMode::kCreate, out);
  return code == SQLITE_OK ? 0 : LogOpenFailure(path, code);
}

// Not sqlite3_exec(), which does the same but does not tell the statement that failed.
int Execute(sqlite3* db, const std::string& text, ExecFailure& failure) {
  if (db == nullptr) {
    failure = {.code = SQLITE_MISUSE, .message = sqlite3_errstr(SQLITE_MISUSE), .database = {}};
    return SQLITE_MISUSE;
  }
  const char* rest = text.c_str();
  while (*rest != '\0') {
    const char* const statement = rest;
    const int code = ExecuteFirst(db, rest);
    if (code == SQLITE_OK) continue;
    failure = {.code = code, .message = sqlite3_errmsg(db), .database = {}};
    failure.database = DescribeDatabase(db, statement, text);
    return code;
  }
  return SQLITE_OK;
}

int Execute(sqlite3* db, const std::string& text, std::string& error) {
  ExecFailure failure;
  const int code = Execute(db, text, failure);
  if (code != SQLITE_OK) error = failure.message;
  return code;
}

void LogReasonBehind(const std::string& statement, const ExecFailure& failure) {
  // Of a file that is damaged SQLite does not say which of several it is.
  const bool is_damaged =
      failure.code == SQLITE_NOTADB || failure.code == SQLITE_CORRUPT || failure.code == SQLITE_IOERR;
  if (statement.size() <= kLongStatement && !is_damaged) return;
  constexpr std::size_t kLongestPart = 400;  // paths and messages may be long; the line may not
  logger::UpdaterLog("%s, %s: %s (%d)\n", logger::UpdaterAtWork(),
                     logger::CutInTheMiddle(failure.database, kLongestPart),
                     logger::CutInTheMiddle(failure.message, kLongestPart), failure.code);
}

void LogExecFailure(const std::string& text, const ExecFailure& failure) {
  logger::UpdaterLog("sqlite3_exec(%s): %s (%d)\n", text, failure.message, failure.code);
  LogReasonBehind(text, failure);
}

int ExecScript(sqlite3* db, const std::string& text) { return ExecScriptAs(db, text, text); }

int ExecScriptAs(sqlite3* db, const std::string& text, const std::string& logged) {
  ExecFailure failure;
  if (Execute(db, text, failure) == SQLITE_OK) return 0;
  LogExecFailure(logged, failure);
  return -1;
}

namespace internal {

void LogFormatFailure(sqlite3* db) {
  logger::UpdaterLog("sqlite3_vmprintf: %s (%d)\n", std::string(sqlite3_errmsg(db)), 0);
}

}  // namespace internal
}  // namespace db_util
