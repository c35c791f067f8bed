// The three kinds of databases that the split of the data database makes: the tables of each, and below them
// the rows that go in. Rows are inserted by position, so columns and statements change together.
#pragma once

#include "updater/server/sql/indexes.h"
#include "updater/server/sql/rebuilt_view.h"

namespace updater::server::sql {

// "DATATIME" is how every installed schema spells it.
inline constexpr const char* kCreateSplitTables =
    "CREATE TABLE view_db.node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, "
    "attribute INTEGER, max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER, "
    "ctime DATETIME DEFAULT (strftime('%s','now')), "
    "mtime DATETIME DEFAULT (strftime('%s','now')), name VARCHAR NOT NULL COLLATE NOCASE, "
    "path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL, v_base_id INTEGER, "
    "v_file_uuid TEXT DEFAULT NULL, v_file_id INTEGER, v_file_size INTEGER, v_file_hash VARCHAR(40), "
    "v_mtime DATETIME, v_exec_bit INTEGER, v_uid INTEGER, v_gid INTEGER, v_mode INTEGER, v_sess_id INTEGER, "
    "v_client_id VARCHAR, v_mac_attr BLOB DEFAULT NULL, v_acl_attribute TEXT DEFAULT NULL, "
    "v_acl_hash TEXT DEFAULT NULL, v_share_priv_disabled INTEGER DEFAULT 0, "
    "v_share_priv_deny_list TEXT DEFAULT '', v_share_priv_ro_list TEXT DEFAULT '', "
    "v_share_priv_rw_list TEXT DEFAULT '', v_share_priv_hash TEXT DEFAULT '', "
    "node_delta_file_uuid TEXT DEFAULT NULL, node_delta_file_id INTEGER, sign_id INTEGER); "
    "CREATE TABLE view_db.version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, "
    "attribute INTEGER, sync_id INTEGER, base_id INTEGER, ctime DATATIME DEFAULT (strftime('%s','now')), "
    "file_uuid TEXT DEFAULT NULL, file_id INTEGER, file_size INTEGER, file_hash VARCHAR(40), mtime DATETIME, "
    "exec_bit INTEGER, uid INTEGER, gid INTEGER, mode INTEGER, sess_id INTEGER, client_id VARCHAR, "
    "win_attr BLOB DEFAULT NULL, linux_attr BLOB DEFAULT NULL, mac_attr BLOB DEFAULT NULL, "
    "plat_attr BLOB DEFAULT NULL, acl_attribute TEXT DEFAULT NULL, acl_hash TEXT DEFAULT NULL, "
    "share_priv_disabled INTEGER DEFAULT 0, share_priv_deny_list TEXT DEFAULT '', "
    "share_priv_ro_list TEXT DEFAULT '', share_priv_rw_list TEXT DEFAULT '', "
    "share_priv_hash TEXT DEFAULT ''); ";

// A new view or file database says 4150, whatever its layout: the next updater writes its own version. The
// number stays when the current version is raised; keep it so.
inline constexpr const char* kCreateOtherTables =
    "CREATE TABLE view_db.config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT ''); "
    "CREATE TABLE view_db.tree_table (node_id INTEGER NOT NULL, parent_id INTEGER NOT NULL, distance INTEGER NOT NULL); "
    "CREATE TABLE view_db.temp_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT ''); "
    "INSERT OR IGNORE INTO view_db.config_table (key, value) VALUES ('sync_id', '0'); "
    "INSERT OR IGNORE INTO view_db.config_table (key, value) VALUES ('sign_id', '0'); "
    "INSERT OR IGNORE INTO view_db.config_table (key, value) VALUES ('rotate_cnt', '32'); "
    "INSERT OR IGNORE INTO view_db.config_table (key, value) VALUES ('remove_repo', '0'); "
    "INSERT OR IGNORE INTO view_db.config_table (key, value) VALUES ('rotate_span', '15552000'); "
    "INSERT INTO view_db.config_table (key, value) VALUES ('version', '4150'); "
    "INSERT INTO view_db.config_table (key, value) VALUES ('branch', 'master'); "
    "INSERT OR IGNORE INTO view_db.temp_table (key, value) VALUES ('last_insert_node_id', 0); "
    "INSERT OR IGNORE INTO view_db.temp_table (key, value) VALUES ('parent_id', 0); "
    "INSERT OR IGNORE INTO view_db.temp_table (key, value) VALUES ('removed_file_id', ''); "
    "INSERT OR IGNORE INTO view_db.temp_table (key, value) VALUES ('removed_node_delta_id', ''); ";

inline constexpr const char* kCreateSplitTrigger =
    "CREATE TRIGGER view_db.version_delete_trigger AFTER DELETE ON version_table FOR EACH ROW BEGIN "
    "UPDATE temp_table SET value = (value || ' (' || OLD.file_uuid || ', ' || OLD.file_id || ')') "
    "WHERE OLD.file_uuid != '' AND OLD.file_id != 0 AND key = 'removed_file_id'; "
    "UPDATE temp_table SET value = (value || ' (' || get_mac_attr_uuid(OLD.mac_attr) || ', ' || "
    "get_mac_attr_file_id(OLD.mac_attr) || ')') WHERE get_mac_attr_uuid(OLD.mac_attr) != '' "
    "AND get_mac_attr_file_id(OLD.mac_attr) != 0 AND key = 'removed_file_id'; "
    "END; ";

// The home volume's uuid goes into each row that names a stored file. What differs between the layouts of
// nodes and versions is written in front of `max_id` and `sync_id` and behind `client_id`.
struct RowLayout {
  const char* attributes;
  const char* committer;
};
inline constexpr RowLayout kSplitRows = {"attribute", ""};
inline constexpr RowLayout kRebuiltRows = {kRebuiltAttributes, "'', "};

// Arguments: the attributes, the uuid, the committer, the uuid twice, where the nodes are; the attributes,
// the uuid, the committer, the uuid, where the versions are; the columns of the last table, and where its
// rows are.
inline constexpr const char* kCopyViewRows =
    "INSERT INTO view_db.node_table SELECT node_id, parent_id, %s, max_id, sync_id, ver_cnt, ctime, mtime, "
    "name, path, data, v_base_id, (CASE WHEN v_file_id > 0 THEN '%q' ELSE NULL END) AS v_file_uuid, v_file_id, "
    "v_file_size, v_file_hash, v_mtime, v_exec_bit, v_uid, v_gid, v_mode, v_sess_id, v_client_id, "
    "%s(CASE WHEN v_mac_attr = '' THEN '' ELSE 'uuid=%q&' || v_mac_attr END), v_acl_attribute, v_acl_hash, "
    "v_share_priv_disabled, v_share_priv_deny_list, v_share_priv_ro_list, v_share_priv_rw_list, "
    "v_share_priv_hash, (CASE WHEN node_delta_file_id > 0 THEN '%q' ELSE NULL END) AS node_delta_file_uuid, "
    "node_delta_file_id, 0 AS sign_id FROM %s; "

    "INSERT INTO view_db.version_table SELECT ver_id, node_id, %s, sync_id, base_id, ctime, "
    "(CASE WHEN file_id > 0 THEN '%q' ELSE NULL END) AS file_uuid, file_id, file_size, file_hash, mtime, "
    "exec_bit, uid, gid, mode, sess_id, client_id, %swin_attr, linux_attr, "
    "(CASE WHEN mac_attr = '' THEN '' ELSE 'uuid=%q&' || mac_attr END), plat_attr, acl_attribute, acl_hash, "
    "share_priv_disabled, share_priv_deny_list, share_priv_ro_list, share_priv_rw_list, share_priv_hash "
    "FROM %s; "

    "INSERT INTO view_db.tree_table SELECT %s FROM %s; ";

inline constexpr const char* kCopyViewSettings =
    "UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'sync_id') "
    "WHERE key = 'sync_id'; "
    "UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'rotate_cnt') "
    "WHERE key = 'rotate_cnt'; "
    "UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'remove_repo') "
    "WHERE key = 'remove_repo'; "
    "UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'rotate_span') "
    "WHERE key = 'rotate_span'; ";

// Before the condition that tells removed nodes.
inline constexpr const char* kCountVersionsWhere =
    "UPDATE view_db.node_table SET ver_cnt = "
    "(SELECT COUNT(*) FROM view_db.version_table WHERE node_id = node_table.node_id) WHERE ";

// Those of the tables that a later updater rebuilds, and of the others.
inline constexpr Index kNodeAndVersionIndexes[] = {
    {"node_table", "node_id"},      {"node_table", "parent_id"},  {"node_table", "attribute"},
    {"node_table", "max_id"},       {"node_table", "sync_id"},    {"node_table", "name"},
    {"node_table", "path"},         {"version_table", "ver_id"},  {"version_table", "node_id"},
    {"version_table", "attribute"}, {"version_table", "sync_id"}, {"version_table", "sess_id"},
};
inline constexpr Index kOtherViewIndexes[] = {
    {"config_table", "key"},    {"tree_table", "node_id"}, {"tree_table", "parent_id"},
    {"tree_table", "distance"}, {"temp_table", "key"},
};

inline constexpr const char* kCreateFileDatabase =
    "CREATE TABLE file_table (file_id INTEGER PRIMARY KEY, attribute INTEGER DEFAULT 0, "
    "ref_cnt INTEGER DEFAULT 0, size INTEGER DEFAULT 0, hash VARCHAR(40) DEFAULT ''); "
    "CREATE TABLE delta_table (node_id INTEGER, from_id INTEGER, to_id INTEGER, attribute INTEGER, "
    "delta_file_id INTEGER); "
    "CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT ''); "
    "INSERT INTO config_table (key, value) VALUES ('version', '4150'); "
    "INSERT INTO config_table (key, value) VALUES ('branch', 'master'); "
    "INSERT INTO config_table (key, value) VALUES ('file_id', 0); "
    "INSERT INTO config_table (key, value) VALUES ('delta_id', 0); "
    "INSERT INTO config_table (key, value) VALUES ('node_delta_id', 0); ";

inline constexpr const char* kCopyFileRows =
    "INSERT INTO file_db.file_table SELECT * FROM data_db.file_table; "
    "INSERT INTO file_db.delta_table SELECT * FROM data_db.delta_table; "
    "UPDATE file_db.config_table SET \t"
    "value = (SELECT value FROM data_db.config_table WHERE key = 'file_id') WHERE key = 'file_id'; "
    "UPDATE file_db.config_table SET \t"
    "value = (SELECT value FROM data_db.config_table WHERE key = 'delta_file_id') WHERE key = 'delta_id'; "
    "UPDATE file_db.config_table SET \t"
    "value = (SELECT value FROM data_db.config_table WHERE key = 'node_delta_file_id') "
    "WHERE key = 'node_delta_id'; ";

inline constexpr Index kFileIndexes[] = {
    {"file_table", "file_id"},  {"file_table", "attribute"}, {"file_table", "ref_cnt"},
    {"file_table", "size"},     {"file_table", "hash"},      {"delta_table", "node_id"},
    {"delta_table", "from_id"}, {"delta_table", "to_id"},    {"delta_table", "delta_file_id"},
    {"config_table", "key"},
};

inline constexpr const char* kCreateDataDatabase =
    "CREATE TABLE volume_table (uuid VARCHAR PRIMARY KEY, repo_path VARCHAR DEFAULT ''); "
    "CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT ''); ";

inline constexpr const char* kFillNewDataDatabase =
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'row1'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'serial'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'rotate_cnt'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'remove_repo'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'rotate_span'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'version'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'branch'; "
    "INSERT INTO new_data_db.volume_table (uuid, repo_path) VALUES ('%q', '%q'); ";

inline constexpr Index kDataIndexes[] = {{"volume_table", "uuid"}, {"config_table", "key"}};

}  // namespace updater::server::sql
