// What the sample volume has besides the layout of version 2577, which updater/legacy/layout.h tells.
#pragma once

namespace ctl::schema {

// Many installed databases have these besides the indexes of their layout.
inline constexpr const char* kMoreDataIndexes =
    "CREATE INDEX node_table_sync_id_index ON node_table (sync_id);"
    "CREATE INDEX version_table_node_id_index ON version_table (node_id);"
    "CREATE INDEX tree_table_node_id_index ON tree_table (node_id);"
    "CREATE INDEX tree_table_parent_id_index ON tree_table (parent_id);";

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
