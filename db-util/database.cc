#include "db-util/database.h"

#include <fcntl.h>
#include <unistd.h>

#include <optional>

#include "base/file_descriptor.h"
#include "db-util/database_files.h"
#include "db-util/execute.h"
#include "db-util/guarded_files.h"
#include "db-util/hardening.h"
#include "logger/log_sink.h"

namespace db_util {
namespace {

int OpenFlags(OpenMode mode) {
  switch (mode) {
    case OpenMode::kCreate:
    case OpenMode::kReadWrite:
      return SQLITE_OPEN_READWRITE;
    case OpenMode::kReadOnly:
      break;
  }
  return SQLITE_OPEN_READONLY;
}

// SQLite never makes a database itself: it would make one where a link leads to.
void MakeIfMissing(const std::string& path) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
  const base::FileDescriptor made(open(path.c_str(), kFlags, 0644));  // opening it tells whether it worked
}

// Logs a failure; passes the result on as 0 or -1.
int CheckOpened(const std::string& path, const Status& status) {
  if (status.ok()) return 0;
  logger::SystemLog("StratoFolder: Open database: %s failed (error code %d)\n", path, status.code);
  return -1;
}

// Opens the file that is open as `file` and was made at `path`, and nothing that somebody has put there
// since. `file` is to be closed before the first statement that locks: closing it gives up the locks of the
// process.
Status OpenExactly(const std::string& path, int file, Database& out) {
  Status status = OpenQuietly(path, out, OpenMode::kReadWrite, Links::kTrusted);
  if (!status.ok() || IsOpenedFile(sqlite3_db_filename(out.get(), "main"), file)) return status;
  out.reset();
  return StatusOf(SQLITE_CANTOPEN);
}

}  // namespace

Status OpenQuietly(const std::string& path, Database& out, OpenMode mode, Links links) {
  out.reset();
  if (mode == OpenMode::kCreate) MakeIfMissing(path);
  sqlite3* db = nullptr;
  int code = SQLITE_OK;
  {
    std::optional<AnyLinks> any_links;
    if (links == Links::kAny) any_links.emplace();
    code = sqlite3_open_v2(path.c_str(), &db, OpenFlags(mode), GuardedFiles());
  }
  Database opened(db);  // SQLite hands out a handle with most failures too
  if (code == SQLITE_OK) code = Harden(db);
  if (code == SQLITE_OK) out = std::move(opened);
  return StatusOf(code);
}

int OpenDatabase(const std::string& path, Database& out, OpenMode mode, Links links) {
  out.reset();
  if (path.empty()) return -1;
  return CheckOpened(path, OpenQuietly(path, out, mode, links));
}

void UseAlone(sqlite3* db) {
  (void)Execute(db, "PRAGMA locking_mode = EXCLUSIVE;");  // opens no file, so it cannot fail
}

void FlushNothing(sqlite3* db) {
  (void)Execute(db, "PRAGMA synchronous = OFF;");  // what cannot be read fails later
}

void UseNoJournal(sqlite3* db, const std::string& schema) {
  // A database without a journal is damaged by a statement that fails, which SQLite keeps from those who do
  // not trust the statements.
  (void)sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 0, nullptr);  // cannot fail on an open connection
  (void)Execute(db, "PRAGMA " + schema + ".journal_mode = OFF;");      // what cannot be read fails later
  (void)sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
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
  const Status status = OpenExactly(path, created.get(), out);
  if (status.ok()) {
    UseAlone(out.get());
    (void)Execute(out.get(), "PRAGMA main.locking_mode = NORMAL;");  // else a journal stays beside it
  }
  return CheckOpened(path, status);
}

}  // namespace db_util
