#include "db-util/checkpoint.h"

#include <sys/stat.h>

#include <cerrno>

#include "base/errno.h"
#include "db-util/database.h"
#include "db-util/database_files.h"
#include "db-util/query.h"
#include "logger/log_sink.h"

namespace db_util {
namespace {

int LogFailure(const std::string& path, const Status& failure) {
  logger::SystemLog("cannot fold database %s: %s (%d)\n", path, failure.message, failure.code);
  return -1;
}

// The line tells the call, and the number of its errno.
int LogFailure(const std::string& path, const char* call, base::Errno error) {
  logger::SystemLog("cannot fold database %s: %s (%d)\n", path, call, error.number());
  return -1;
}

// The first statement rolls a hot journal back, and that one is flushed. The second one empties the
// write-ahead log, or only copies what is in it. With "busy" set in its row, another connection kept it from
// doing so.
Status RecoverAndCheckpoint(sqlite3* db, bool is_link, bool keeps_log, bool& busy) {
  int ignored = 0;
  Status status = QueryInt(db, "SELECT count(*) FROM sqlite_master;", ignored);
  if (!status.ok()) return status;
  if (!is_link) FlushNothing(db);
  if (keeps_log) (void)sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);  // cannot fail
  int blocked = 0;
  status =
      QueryInt(db, keeps_log ? "PRAGMA wal_checkpoint(FULL);" : "PRAGMA wal_checkpoint(TRUNCATE);", blocked);
  busy = blocked != 0;
  return status;
}

int Checkpoint(const std::string& path, Links links, bool keeps_log) {
  struct stat file {};
  const bool exists = lstat(path.c_str(), &file) == 0;
  if (!exists && errno != ENOENT) return LogFailure(path, "stat", base::Errno::Last());
  if (exists) {
    Database db;
    Status status = OpenQuietly(path, db, OpenMode::kReadWrite, links);
    if (!status.ok()) return LogFailure(path, status);
    UseAlone(db.get());
    (void)sqlite3_busy_timeout(db.get(), kBusyTimeoutMs);  // cannot fail on an open connection
    bool busy = false;
    status = RecoverAndCheckpoint(db.get(), S_ISLNK(file.st_mode), keeps_log, busy);
    if (!status.ok()) return LogFailure(path, status);
    if (busy) return LogFailure(path, {.code = SQLITE_BUSY, .message = "the write-ahead log is in use"});
  }
  if (!keeps_log && RemoveCompanions(path) < 0)
    return LogFailure(path, "cannot remove companion files", base::Errno::Last());
  return 0;
}

}  // namespace

int CheckpointDatabase(const std::string& path, Links links) { return Checkpoint(path, links, false); }

int WriteBackLog(const std::string& path, Links links) { return Checkpoint(path, links, true); }

}  // namespace db_util
