#include "updater/server/sql/rebuild.h"

#include "db-util/database.h"

namespace updater::server::sql {

int ExecRebuild(sqlite3* db, const std::string& script) {
  const bool rebuilt = db_util::ExecScript(db, "PRAGMA legacy_alter_table = ON;") == 0 &&
                       db_util::ExecScript(db, script) == 0 &&
                       db_util::ExecScript(db, "PRAGMA legacy_alter_table = OFF;") == 0;
  return rebuilt ? 0 : -1;
}

}  // namespace updater::server::sql
