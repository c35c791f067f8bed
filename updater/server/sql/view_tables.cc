#include "updater/server/sql/view_tables.h"

namespace updater::server::sql {
namespace {

constexpr const char* kNodeIds = "node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, ";
constexpr const char* kNodeColumns =
    "max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER, "
    "ctime DATETIME DEFAULT (strftime('%s','now')), mtime DATETIME DEFAULT (strftime('%s','now')), "
    "name VARCHAR NOT NULL COLLATE NOCASE, path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL, "
    "v_base_id INTEGER, v_file_uuid TEXT DEFAULT NULL, v_file_id INTEGER, v_file_size INTEGER, "
    "v_file_hash VARCHAR(40), v_mtime DATETIME, v_exec_bit INTEGER, v_uid INTEGER, v_gid INTEGER, "
    "v_mode INTEGER, v_sess_id INTEGER, v_client_id VARCHAR, ";
constexpr const char* kNodeAttributes =
    "v_mac_attr BLOB DEFAULT NULL, v_acl_attribute TEXT DEFAULT NULL, v_acl_hash TEXT DEFAULT NULL, "
    "v_share_priv_disabled INTEGER DEFAULT 0, v_share_priv_deny_list TEXT DEFAULT '', "
    "v_share_priv_ro_list TEXT DEFAULT '', v_share_priv_rw_list TEXT DEFAULT '', "
    "v_share_priv_hash TEXT DEFAULT '', node_delta_file_uuid TEXT DEFAULT NULL, node_delta_file_id INTEGER, "
    "sign_id INTEGER";

constexpr const char* kVersionIds = "ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, ";
// "DATATIME" is how every installed schema spells it.
constexpr const char* kVersionColumns =
    "sync_id INTEGER, base_id INTEGER, ctime DATATIME DEFAULT (strftime('%s','now')), "
    "file_uuid TEXT DEFAULT NULL, file_id INTEGER, file_size INTEGER, file_hash VARCHAR(40), mtime DATETIME, "
    "exec_bit INTEGER, uid INTEGER, gid INTEGER, mode INTEGER, sess_id INTEGER, client_id VARCHAR, ";
constexpr const char* kVersionAttributes =
    "win_attr BLOB DEFAULT NULL, linux_attr BLOB DEFAULT NULL, mac_attr BLOB DEFAULT NULL, "
    "plat_attr BLOB DEFAULT NULL, acl_attribute TEXT DEFAULT NULL, acl_hash TEXT DEFAULT NULL, "
    "share_priv_disabled INTEGER DEFAULT 0, share_priv_deny_list TEXT DEFAULT '', "
    "share_priv_ro_list TEXT DEFAULT '', share_priv_rw_list TEXT DEFAULT '', share_priv_hash TEXT DEFAULT ''";

}  // namespace

std::string CreateViewTables(const char* schema, const ViewLayout& layout) {
  const std::string create = std::string("CREATE TABLE ") + schema + ".";
  return create + "node_table (" + kNodeIds + layout.state + kNodeColumns + layout.node_committer +
         kNodeAttributes + "); " + create + "version_table (" + kVersionIds + layout.state + kVersionColumns +
         layout.version_committer + kVersionAttributes + "); ";
}

}  // namespace updater::server::sql
