#include "updater/server/maintenance.h"

#include "db-util/database.h"
#include "logger/updater_log.h"
#include "updater/framework/view_databases.h"

namespace updater::server {

int RunMaintenance(const std::string& path, const std::string& statements) {
  db_util::Database db;
  if (!logger::Succeeded(db_util::OpenDatabase(path, db), "failed to initialize database connection (%s)",
                         path)) {
    return -1;
  }
  (void)sqlite3_busy_timeout(db.get(), db_util::kBusyTimeoutMs);  // cannot fail on an open connection
  std::string error;
  const int code = db_util::Execute(db.get(), TuneStatements("main") + statements, error);
  if (code == SQLITE_OK) return 0;
  // The only line of the updaters with another head and no source line; keep it so.
  logger::SystemLog("StratoFolder Updater: sqlite3_exec: %s (%d)", error, code);
  return -1;
}

}  // namespace updater::server
