#include "db-util/database.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "db-util/database_files.h"
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

int OpenWithFlags(const std::string& path, Database& out, int flags) {
  out.reset();
  sqlite3* db = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
  Database opened(db);  // SQLite hands out a handle with most failures too
  if (code == SQLITE_OK) out = std::move(opened);
  return code;
}

int LogOpenFailure(const std::string& path, int code) {
  logger::SystemLog("StratoFolder: Open database: %s failed (error code %d)\n", path, code);
  return -1;
}

// The path with its folder resolved: SQLite's "no links" flag refuses a link anywhere in the path, but only
// the last component is the attacker's.
std::string ResolveFolder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(folder.c_str(), nullptr), &std::free);
  if (!resolved) return path;
  return std::string(resolved.get()) + "/" + path.substr(slash == std::string::npos ? 0 : slash + 1);
}

bool CreateExclusively(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  (void)close(fd);  // nothing was written
  return true;
}

}  // namespace

int OpenQuietly(const std::string& path, Database& out, OpenMode mode) {
  return OpenWithFlags(path, out, OpenFlags(mode));
}

int OpenDatabase(const std::string& path, Database& out, OpenMode mode) {
  out.reset();
  if (path.empty()) return -1;
  const int code = OpenQuietly(path, out, mode);
  return code == SQLITE_OK ? 0 : LogOpenFailure(path, code);
}

int OpenScratchDatabase(const std::string& path, Database& out) {
  out.reset();
  if (path.empty()) return -1;
  const std::string resolved = ResolveFolder(path);
  for (const std::string& file : DatabaseFiles(resolved)) {
    (void)unlink(file.c_str());  // the exclusive creation below tells whether it worked
  }
  if (!CreateExclusively(resolved)) return LogOpenFailure(path, SQLITE_CANTOPEN);
  const int code = OpenWithFlags(resolved, out, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW);
  return code == SQLITE_OK ? 0 : LogOpenFailure(path, code);
}

int Execute(sqlite3* db, const std::string& text, std::string& error) {
  char* message = nullptr;
  const int code = sqlite3_exec(db, text.c_str(), nullptr, nullptr, &message);
  const std::unique_ptr<char, decltype(&sqlite3_free)> owned(message, &sqlite3_free);
  if (code != SQLITE_OK) error = message == nullptr ? sqlite3_errstr(code) : message;
  return code;
}

void LogExecFailure(const std::string& text, const std::string& error, int code) {
  logger::UpdaterLog("sqlite3_exec(%s): %s (%d)\n", text, error, code);
}

int ExecScript(sqlite3* db, const std::string& text) {
  std::string error;
  const int code = Execute(db, text, error);
  if (code == SQLITE_OK) return 0;
  LogExecFailure(text, error, code);
  return -1;
}

namespace internal {

void LogFormatFailure(sqlite3* db) {
  logger::UpdaterLog("sqlite3_vmprintf: %s (%d)\n", std::string(sqlite3_errmsg(db)), 0);
}

}  // namespace internal
}  // namespace db_util
