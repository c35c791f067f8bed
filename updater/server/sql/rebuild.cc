#include "updater/server/sql/rebuild.h"

#include "updater/framework/exec_sql.h"

namespace updater::server::sql {

bool ExecRebuild(sqlite3* db, const std::string& script) {
  return ExecScript(db, "PRAGMA legacy_alter_table = ON;") == 0 && ExecScript(db, script) == 0 &&
         ExecScript(db, "PRAGMA legacy_alter_table = OFF;") == 0;
}

}  // namespace updater::server::sql
