#include "updater/server/maintenance.h"

#include "db-util/database.h"
#include "db-util/execute.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/updater_log.h"

namespace updater::server {

bool RunMaintenance(const std::string& path, const std::string& statements) {
  db_util::Database db;
  if (!Check(db_util::OpenDatabase(path, db, db_util::OpenMode::kCreate, db_util::Links::kTrusted),
             "failed to initialize database connection (%s)", path)) {
    return false;
  }
  db_util::UseAlone(db.get());
  (void)sqlite3_busy_timeout(db.get(), db_util::kBusyTimeoutMs);  // cannot fail on an open connection
  const db_util::Status status = db_util::Execute(db.get(), TuneStatements("main") + statements);
  if (status.ok()) return true;
  // Without the head of the other lines and without a source line; keep it so.
  logger::SystemLog("StratoFolder Updater: sqlite3_exec: %s (%d)", status.message, status.code);
  return false;
}

}  // namespace updater::server
