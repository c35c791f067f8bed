#include "updater/server/sql/rebuilt_view.h"

#include "updater/server/sql/indexes.h"

namespace updater::server::sql {
namespace {

// Rows go in by position, so these and the statements that fill the tables change together. "DATATIME" is how
// every installed schema spells it.
constexpr const char* kCreateTables =
    "CREATE TABLE view_db.node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, "
    "removed INTEGER, file_type INTEGER, max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER, "
    "ctime DATETIME DEFAULT (strftime('%s','now')), "
    "mtime DATETIME DEFAULT (strftime('%s','now')), name VARCHAR NOT NULL COLLATE NOCASE, "
    "path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL, v_base_id INTEGER, "
    "v_file_uuid TEXT DEFAULT NULL, v_file_id INTEGER, v_file_size INTEGER, v_file_hash VARCHAR(40), "
    "v_mtime DATETIME, v_exec_bit INTEGER, v_uid INTEGER, v_gid INTEGER, v_mode INTEGER, v_sess_id INTEGER, "
    "v_client_id VARCHAR, v_committer_sess_id TEXT DEFAULT '', v_mac_attr BLOB DEFAULT NULL, "
    "v_acl_attribute TEXT DEFAULT NULL, v_acl_hash TEXT DEFAULT NULL, "
    "v_share_priv_disabled INTEGER DEFAULT 0, v_share_priv_deny_list TEXT DEFAULT '', "
    "v_share_priv_ro_list TEXT DEFAULT '', v_share_priv_rw_list TEXT DEFAULT '', "
    "v_share_priv_hash TEXT DEFAULT '', node_delta_file_uuid TEXT DEFAULT NULL, node_delta_file_id INTEGER, "
    "sign_id INTEGER); "
    "CREATE TABLE view_db.version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, "
    "removed INTEGER, file_type INTEGER, sync_id INTEGER, base_id INTEGER, "
    "ctime DATATIME DEFAULT (strftime('%s','now')), "
    "file_uuid TEXT DEFAULT NULL, file_id INTEGER, file_size INTEGER, file_hash VARCHAR(40), mtime DATETIME, "
    "exec_bit INTEGER, uid INTEGER, gid INTEGER, mode INTEGER, sess_id INTEGER, client_id VARCHAR, "
    "committer_sess_id TEXT DEFAULT '', win_attr BLOB DEFAULT NULL, linux_attr BLOB DEFAULT NULL, "
    "mac_attr BLOB DEFAULT NULL, plat_attr BLOB DEFAULT NULL, acl_attribute TEXT DEFAULT NULL, "
    "acl_hash TEXT DEFAULT NULL, share_priv_disabled INTEGER DEFAULT 0, share_priv_deny_list TEXT DEFAULT '', "
    "share_priv_ro_list TEXT DEFAULT '', share_priv_rw_list TEXT DEFAULT '', "
    "share_priv_hash TEXT DEFAULT ''); ";

constexpr Index kNodeIndexes[] = {
    {"node_table", "node_id"},   {"node_table", "parent_id"}, {"node_table", "removed"},
    {"node_table", "file_type"}, {"node_table", "max_id"},    {"node_table", "sync_id"},
    {"node_table", "name"},      {"node_table", "path"},
};
constexpr const char* kNodePathCaseIndex =
    "CREATE INDEX IF NOT EXISTS view_db.node_table_path_index_case ON node_table (path COLLATE BINARY);";
constexpr Index kVersionIndexes[] = {
    {"version_table", "ver_id"},    {"version_table", "node_id"}, {"version_table", "removed"},
    {"version_table", "file_type"}, {"version_table", "sync_id"}, {"version_table", "sess_id"},
};

}  // namespace

std::string CreateRebuiltTables() { return kCreateTables; }

std::string CreateRebuiltIndexes() {
  return CreateIndexes("view_db", kNodeIndexes) + kNodePathCaseIndex +
         CreateIndexes("view_db", kVersionIndexes);
}

}  // namespace updater::server::sql
