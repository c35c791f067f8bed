#include "db/view_db.h"

#include "db-util/execute.h"
#include "db/component.h"
#include "db/database_layout.h"
#include "db/mac_attribute.h"

namespace db {
namespace {

constexpr const char* kViewTables =
    "'node_table', 'version_table', 'tree_table', 'remove_file_table', 'config_table'";
constexpr int kViewTableCount = 5;

// Temporary tables hold the uuid and the ids of the rows that go, so that every table of the view is read a
// fixed number of times, and needs no index.
constexpr const char* kCreateTemporaryTables =
    "CREATE TEMP TABLE IF NOT EXISTS gone_volume (uuid VARCHAR);"
    "CREATE TEMP TABLE IF NOT EXISTS gone_node (node_id INTEGER PRIMARY KEY);"
    "CREATE TEMP TABLE IF NOT EXISTS touched_node (node_id INTEGER PRIMARY KEY, ver_cnt INTEGER DEFAULT 0);"
    "DELETE FROM temp.gone_volume;"
    "DELETE FROM temp.gone_node;"
    "DELETE FROM temp.touched_node;";

constexpr const char* kDeleteRecords =
    "BEGIN IMMEDIATE;"
    "INSERT INTO temp.gone_node SELECT node_id FROM main.node_table"
    " WHERE v_file_uuid = (SELECT uuid FROM temp.gone_volume);"
    "INSERT OR IGNORE INTO temp.touched_node (node_id) SELECT node_id FROM main.version_table"
    " WHERE file_uuid = (SELECT uuid FROM temp.gone_volume) AND node_id IS NOT NULL;"
    "DELETE FROM main.version_table WHERE file_uuid = (SELECT uuid FROM temp.gone_volume)"
    " OR node_id IN (SELECT node_id FROM temp.gone_node);"
    "DELETE FROM main.tree_table WHERE node_id IN (SELECT node_id FROM temp.gone_node)"
    " OR parent_id IN (SELECT node_id FROM temp.gone_node);"
    "DELETE FROM main.node_table WHERE node_id IN (SELECT node_id FROM temp.gone_node);"
    "UPDATE main.node_table SET node_delta_file_uuid = NULL, node_delta_file_id = 0"
    " WHERE node_delta_file_uuid = (SELECT uuid FROM temp.gone_volume);"
    "UPDATE main.node_table SET v_mac_attr = ''"
    " WHERE get_mac_attr_uuid(v_mac_attr) = (SELECT uuid FROM temp.gone_volume);"
    "UPDATE main.version_table SET mac_attr = ''"
    " WHERE get_mac_attr_uuid(mac_attr) = (SELECT uuid FROM temp.gone_volume);"
    "INSERT OR REPLACE INTO temp.touched_node SELECT node_id, count(*) FROM main.version_table"
    " WHERE node_id IN (SELECT node_id FROM temp.touched_node) GROUP BY node_id;"
    "UPDATE main.node_table SET ver_cnt ="
    " (SELECT t.ver_cnt FROM temp.touched_node AS t WHERE t.node_id = main.node_table.node_id)"
    " WHERE node_id IN (SELECT node_id FROM temp.touched_node);"
    // These go last, because the delete trigger has just queued files of the volume.
    "DELETE FROM main.remove_file_table WHERE uuid = (SELECT uuid FROM temp.gone_volume);"
    "COMMIT;";

}  // namespace

std::shared_ptr<SqliteViewDb> SqliteViewDb::Open(const std::string& path) {
  db_util::Database db;
  db_util::Status status = db_util::OpenQuietly(path, db, db_util::OpenMode::kReadWrite);
  if (status.ok()) status = RegisterMacAttributeFunctions(db.get());
  if (!Check(status, "cannot open %s: %s (%d)\n", path, status.message, status.code)) return nullptr;
  (void)sqlite3_busy_timeout(db.get(), db_util::kBusyTimeoutMs);  // cannot fail on an open connection
  if (!HasLayout(db.get(), path, kViewTables, kViewTableCount)) return nullptr;
  return std::make_shared<SqliteViewDb>(std::move(db));
}

int SqliteViewDb::DeleteRecordWithUuid(const std::string& uuid) {
  if (!db_) return -1;
  if (uuid.empty()) return 0;  // what has no uuid lies on no volume
  std::string script;
  if (!db_util::FormatSql(script, "INSERT INTO temp.gone_volume VALUES (%Q);", uuid)) return -1;
  const db_util::Status status =
      db_util::Execute(db_.get(), kCreateTemporaryTables + script + kDeleteRecords);
  if (Check(status, "DeleteRecordWithUuid: %s (%d)\n", status.message, status.code)) return 0;
  (void)db_util::Execute(db_.get(), "ROLLBACK;");  // the failure that led here has been logged
  return -1;
}

}  // namespace db
