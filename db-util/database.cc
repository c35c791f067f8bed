#include "db-util/database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_descriptor.h"
#include "db-util/database_files.h"
#include "db-util/guarded_files.h"
#include "logger/log_sink.h"

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

// Logs a failure; passes the result on as 0 or -1.
int CheckOpened(const std::string& path, const Status& status) {
  if (status.ok()) return 0;
  logger::SystemLog("StratoFolder: Open database: %s failed (error code %d)\n", path, status.code);
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

}  // namespace

Status OpenQuietly(const std::string& path, Database& out, OpenMode mode) {
  out.reset();
  sqlite3* db = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &db, OpenFlags(mode), GuardedFiles());
  Database opened(db);  // SQLite hands out a handle with most failures too
  if (code == SQLITE_OK) out = std::move(opened);
  return StatusOf(code);
}

int OpenDatabase(const std::string& path, Database& out, OpenMode mode) {
  out.reset();
  if (path.empty()) return -1;
  return CheckOpened(path, OpenQuietly(path, out, mode));
}

Status OpenExactly(const std::string& path, int file, OpenMode mode, Database& out) {
  Status status = OpenQuietly(path, out, mode);
  if (!status.ok() || IsOpenTwice(file)) return status;
  out.reset();
  return StatusOf(SQLITE_CANTOPEN);
}

int OpenScratchDatabase(const std::string& path, Database& out) {
  out.reset();
  if (path.empty()) return -1;
  for (const std::string& file : DatabaseFiles(path)) {
    (void)unlink(file.c_str());  // the exclusive creation below tells whether it worked
  }
  const base::FileDescriptor created(
      open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!created.is_open()) return CheckOpened(path, StatusOf(SQLITE_CANTOPEN));
  // ATTACH inherits the flags: without the one for creation it could not make a database that is missing, and
  // with the one against links it would refuse a volume that is reached through one.
  return CheckOpened(path, OpenExactly(path, created.get(), OpenMode::kCreate, out));
}

}  // namespace db_util
