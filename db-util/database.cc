#include "db-util/database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_descriptor.h"
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

int LogOpenFailure(const std::string& path, int code) {
  logger::SystemLog("StratoFolder: Open database: %s failed (error code %d)\n", path, code);
  return -1;
}

// True when the file at `path` still is the one that was opened.
bool IsStillAt(int fd, const std::string& path) {
  struct stat opened {};
  struct stat present {};
  return fstat(fd, &opened) == 0 && lstat(path.c_str(), &present) == 0 && opened.st_dev == present.st_dev &&
         opened.st_ino == present.st_ino;
}

}  // namespace

int OpenQuietly(const std::string& path, Database& out, OpenMode mode) {
  out.reset();
  sqlite3* db = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &db, OpenFlags(mode), nullptr);
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
  const int code = OpenQuietly(path, out, OpenMode::kCreate);
  if (code != SQLITE_OK) return LogOpenFailure(path, code);
  if (IsStillAt(created.get(), path)) return 0;
  out.reset();
  return LogOpenFailure(path, SQLITE_CANTOPEN);
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
