#include "db/database_layout.h"

#include "db-util/query.h"
#include "db/component.h"
#include "package/layout.h"

namespace db {

bool HasLayout(sqlite3* db, const std::string& path, const std::string& table_names, int table_count) {
  int tables = 0;
  int version = 0;  // as long as a table is missing
  db_util::Status status = db_util::QueryInt(
      db, "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name IN (" + table_names + ");",
      tables);
  if (status.ok() && tables == table_count) {
    status = db_util::QueryInt(db, "SELECT value FROM config_table WHERE key = 'version';", version);
  }
  return Check(status, "cannot read %s: %s (%d)\n", path, status.message, status.code) &&
         Check(version == package::kCurrentVersion, "%s is not a database of version %d\n", path,
               package::kCurrentVersion);
}

}  // namespace db
