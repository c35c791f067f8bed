#include "updater/server/sql/rebuild.h"

#include "updater/framework/exec_sql.h"

namespace updater::server::sql {

bool ExecRebuild(sqlite3* db, const std::string& script, const std::string& logged) {
  return ExecScript(db, "PRAGMA legacy_alter_table = ON;") == 0 && ExecScriptAs(db, script, logged) == 0 &&
         ExecScript(db, "PRAGMA legacy_alter_table = OFF;") == 0;
}

}  // namespace updater::server::sql
