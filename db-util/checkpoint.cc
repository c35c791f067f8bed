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

// The first statement rolls a hot journal back, the second one empties the write-ahead log. With "busy" set
// in the row of the second, another connection kept it from doing so.
Status RecoverAndCheckpoint(sqlite3* db, Links links, bool& busy) {
  int ignored = 0;
  Status status = QueryInt(db, "SELECT count(*) FROM sqlite_master;", ignored);
  if (!status.ok()) return status;
  if (links == Links::kTrusted) FlushNothing(db);
  int blocked = 0;
  status = QueryInt(db, "PRAGMA wal_checkpoint(TRUNCATE);", blocked);
  busy = blocked != 0;
  return status;
}

}  // namespace

int CheckpointDatabase(const std::string& path, Links links) {
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
    status = RecoverAndCheckpoint(db.get(), links, busy);
    if (!status.ok()) return LogFailure(path, status);
    if (busy) return LogFailure(path, {.code = SQLITE_BUSY, .message = "the write-ahead log is in use"});
  }
  if (RemoveCompanions(path) < 0)
    return LogFailure(path, "cannot remove companion files", base::Errno::Last());
  return 0;
}

}  // namespace db_util
