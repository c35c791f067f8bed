#include "updater/server/maintenance.h"

#include "db-util/database.h"
#include "db-util/execute.h"
#include "db-util/log_mode.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/updater_log.h"

namespace updater::server {

bool AddLog(const std::string& path) {
  const base::Errno error = db_util::AddSuspendedLog(path);
  return Check(error, "cannot write %s: %s (%d)\n", path, error.Text(), error.number());
}

bool RunMaintenance(const std::string& path, const std::string& statements) {
  const db_util::LogMode mode = db_util::SuspendLog(path);
  db_util::Database db;
  if (!Check(db_util::OpenDatabase(path, db, db_util::OpenMode::kCreate, db_util::Links::kTrusted),
             "failed to initialize database connection (%s)", path)) {
    return false;
  }
  db_util::UseAlone(db.get());
  (void)sqlite3_busy_timeout(db.get(), db_util::kBusyTimeoutMs);  // cannot fail on an open connection
  db_util::Status status = Tune(db.get(), "main");
  if (status.ok()) status = db_util::Execute(db.get(), statements);
  db.reset();
  // VACUUM writes a header of its own.
  if (status.ok()) return mode != db_util::LogMode::kSuspended || AddLog(path);
  // Without the head of the other lines and without a source line; keep it so.
  logger::SystemLog("StratoFolder Updater: sqlite3_exec: %s (%d)", status.message, status.code);
  return false;
}

}  // namespace updater::server
