#include "db-util/database_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "db-util/database.h"
#include "db-util/query.h"
#include "logger/log_sink.h"

namespace db_util {
namespace {

int LogFoldFailure(const std::string& path, const std::string& message, int code) {
  logger::SystemLog("cannot fold database %s: %s (%d)\n", path, message, code);
  return -1;
}

// The first statement rolls a hot journal back, the second one empties the write-ahead log. With "busy" set
// in the row of the second, another connection kept it from doing so.
QueryResult RecoverAndCheckpoint(sqlite3* db, bool& busy) {
  int ignored = 0;
  QueryResult result = QueryInt(db, "SELECT count(*) FROM sqlite_master;", ignored);
  if (!result.ok()) return result;
  int blocked = 0;
  result = QueryInt(db, "PRAGMA wal_checkpoint(TRUNCATE);", blocked);
  busy = blocked != 0;
  return result;
}

}  // namespace

std::array<std::string, kCompanionSuffixes.size() + 1> DatabaseFiles(const std::string& path) {
  std::array<std::string, kCompanionSuffixes.size() + 1> files;
  files[0] = path;
  for (std::size_t i = 0; i < kCompanionSuffixes.size(); ++i) {
    files[i + 1] = path + std::string(kCompanionSuffixes[i]);
  }
  return files;
}

int RemoveCompanions(const std::string& path) {
  for (const std::string_view suffix : kCompanionSuffixes) {
    if (unlink((path + std::string(suffix)).c_str()) < 0 && errno != ENOENT) return -1;
  }
  return 0;
}

int FoldDatabase(const std::string& path) {
  struct stat status {};
  const bool exists = stat(path.c_str(), &status) == 0;
  if (!exists && errno != ENOENT) return LogFoldFailure(path, "stat", errno);
  if (exists) {
    Database db;
    const int code = OpenQuietly(path, db, OpenMode::kReadWrite);
    if (code != SQLITE_OK) return LogFoldFailure(path, sqlite3_errstr(code), code);
    (void)sqlite3_busy_timeout(db.get(), kBusyTimeoutMs);  // cannot fail on an open connection
    bool busy = false;
    const QueryResult result = RecoverAndCheckpoint(db.get(), busy);
    if (!result.ok()) return LogFoldFailure(path, result.message, result.code);
    if (busy) return LogFoldFailure(path, "the write-ahead log is in use", SQLITE_BUSY);
  }
  if (RemoveCompanions(path) < 0) return LogFoldFailure(path, "cannot remove companion files", errno);
  return 0;
}

}  // namespace db_util
