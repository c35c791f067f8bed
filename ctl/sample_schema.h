// The databases as they were at version 2577: the layout that the sample volume starts from.
#pragma once

namespace ctl::schema {

inline constexpr const char* kData =
    "CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');"
    "CREATE TABLE node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, view_id INTEGER,"
    " attribute INTEGER, max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER,"
    " ctime DATETIME DEFAULT (strftime('%s','now')), mtime DATETIME DEFAULT (strftime('%s','now')),"
    " name VARCHAR NOT NULL COLLATE NOCASE, path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL);"
    "CREATE TABLE version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, attribute INTEGER,"
    " sync_id INTEGER, base_id INTEGER, ctime DATATIME DEFAULT (strftime('%s','now')), file_id INTEGER,"
    " file_size INTEGER, file_hash VARCHAR(40), mtime DATETIME, exec_bit INTEGER, uid INTEGER, gid INTEGER,"
    " sess_id INTEGER, client_id VARCHAR, win_attr BLOB DEFAULT NULL, linux_attr BLOB DEFAULT NULL,"
    " mac_attr BLOB DEFAULT NULL, plat_attr BLOB DEFAULT NULL);"
    "CREATE TABLE tree_table (node_id INTEGER NOT NULL, parent_id INTEGER NOT NULL, distance INTEGER NOT NULL);"
    "CREATE TABLE file_table (file_id INTEGER PRIMARY KEY, attribute INTEGER DEFAULT 0,"
    " ref_cnt INTEGER DEFAULT 0, size INTEGER DEFAULT 0, hash VARCHAR(40) DEFAULT '');"
    "CREATE TABLE delta_table (node_id INTEGER, from_id INTEGER, to_id INTEGER, attribute INTEGER,"
    " delta_file_id INTEGER);";

// Made after the rows, which is several times faster than keeping them up to date row by row.
inline constexpr const char* kDataIndexes =
    "CREATE INDEX node_table_parent_id_index ON node_table (parent_id);"
    "CREATE INDEX node_table_view_id_index ON node_table (view_id);"
    "CREATE INDEX node_table_sync_id_index ON node_table (sync_id);"
    "CREATE INDEX node_table_path_index ON node_table (path);"
    "CREATE INDEX version_table_node_id_index ON version_table (node_id);"
    "CREATE INDEX version_table_sync_id_index ON version_table (sync_id);"
    "CREATE INDEX tree_table_node_id_index ON tree_table (node_id);"
    "CREATE INDEX tree_table_parent_id_index ON tree_table (parent_id);";

inline constexpr const char* kUser =
    "CREATE TABLE user_table (id INTEGER PRIMARY KEY AUTOINCREMENT, attribute INTEGER, view_id INTEGER,"
    " name VARCHAR COLLATE NOCASE UNIQUE, uid INTEGER, gid INTEGER, user_type INTEGER NOT NULL,"
    " watch_path VARCHAR NOT NULL);"
    "CREATE TABLE session_table (uid INTEGER REFERENCES user_table (id), attribute INTEGER DEFAULT 0,"
    " group_id INTEGER, client VARCHAR, ip VARCHAR, ctime DATETIME DEFAULT (strftime('%s','now')),"
    " sess_id VARCHAR UNIQUE ON CONFLICT ABORT);"
    "CREATE TABLE config_table (key VARCHAR UNIQUE ON CONFLICT ABORT, value VARCHAR);";

inline constexpr const char* kClient =
    "CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');"
    "CREATE TABLE node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, view_id INTEGER,"
    " sync_id INTEGER, mtime DATETIME, file_hash VARCHAR(40), name VARCHAR NOT NULL COLLATE NOCASE,"
    " path VARCHAR NOT NULL COLLATE NOCASE);"
    "CREATE TABLE progress_table (view_id INTEGER, sync_id INTEGER);"
    "CREATE INDEX node_table_path_index ON node_table (path);";

inline constexpr const char* kInsertConfig = "INSERT INTO config_table (key, value) VALUES (?, ?);";
inline constexpr const char* kInsertNode =
    "INSERT INTO node_table (node_id, parent_id, view_id, attribute, max_id, sync_id, ver_cnt, ctime, mtime,"
    " name, path, data) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?);";
inline constexpr const char* kInsertVersion =
    "INSERT INTO version_table (ver_id, node_id, attribute, sync_id, base_id, ctime, file_id, file_size,"
    " file_hash, mtime, exec_bit, uid, gid, sess_id, client_id, mac_attr)"
    " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?);";
inline constexpr const char* kInsertTree =
    "INSERT INTO tree_table (node_id, parent_id, distance) VALUES (?, ?, ?);";
inline constexpr const char* kInsertFile =
    "INSERT INTO file_table (file_id, ref_cnt, size, hash) VALUES (?, ?, ?, ?);";
inline constexpr const char* kInsertDelta =
    "INSERT INTO delta_table (node_id, from_id, to_id, attribute, delta_file_id) VALUES (?, ?, ?, 0, ?);";
inline constexpr const char* kInsertUser =
    "INSERT INTO user_table (attribute, view_id, name, uid, gid, user_type, watch_path)"
    " VALUES (?, ?, ?, ?, ?, ?, ?);";
inline constexpr const char* kInsertSession =
    "INSERT INTO session_table (uid, group_id, client, ip, ctime, sess_id) VALUES (?, 1, ?, ?, ?, ?);";
inline constexpr const char* kInsertClientNode =
    "INSERT INTO node_table (node_id, parent_id, view_id, sync_id, mtime, file_hash, name, path)"
    " VALUES (?, ?, ?, ?, ?, ?, ?, ?);";
inline constexpr const char* kInsertProgress = "INSERT INTO progress_table (view_id, sync_id) VALUES (?, ?);";

}  // namespace ctl::schema
