// The columns of access rights and shares, which two updaters add, and the name that the server's own changes
// are stored under.
#pragma once

namespace updater::server::sql {

inline constexpr const char* kAddVersionColumns =
    "ALTER TABLE data_db.version_table ADD COLUMN mode INTEGER; "
    "ALTER TABLE data_db.version_table ADD COLUMN acl_attribute TEXT DEFAULT NULL; "
    "ALTER TABLE data_db.version_table ADD COLUMN acl_hash TEXT DEFAULT NULL; "
    "ALTER TABLE data_db.version_table ADD COLUMN share_priv_disabled INTEGER DEFAULT 0; "
    "ALTER TABLE data_db.version_table ADD COLUMN share_priv_deny_list TEXT DEFAULT ''; "
    "ALTER TABLE data_db.version_table ADD COLUMN share_priv_ro_list TEXT DEFAULT ''; "
    "ALTER TABLE data_db.version_table ADD COLUMN share_priv_rw_list TEXT DEFAULT ''; "
    "ALTER TABLE data_db.version_table ADD COLUMN share_priv_hash TEXT DEFAULT ''; ";

// The two modes are stored in decimal as every installed database has them. Rows that are not
// removed (bit 0 of attribute) get 1877, and then 1604 if they are plain files that cannot be executed.
// Removed rows keep NULL.
inline constexpr const char* kSetModes =
    "UPDATE data_db.version_table SET mode = 1877 WHERE NOT (attribute & 1);"
    "UPDATE data_db.version_table SET mode = 1604 WHERE attribute = 0 AND exec_bit = 0;";

inline constexpr const char* kRenameServerClient =
    "UPDATE data_db.version_table SET client_id = 'localhost' WHERE client_id = 'admin@StorageHost';";

// The two above in one pass over the table.
inline constexpr const char* kSetModesAndRenameServerClient =
    "UPDATE data_db.version_table SET mode = (CASE WHEN attribute = 0 AND exec_bit = 0 THEN 1604 "
    "WHEN NOT (attribute & 1) THEN 1877 ELSE mode END), "
    "client_id = (CASE client_id WHEN 'admin@StorageHost' THEN 'localhost' ELSE client_id END) "
    "WHERE NOT (attribute & 1) OR client_id = 'admin@StorageHost';";

inline constexpr const char* kAddClientNodeColumns =
    "ALTER TABLE client_db.node_table ADD COLUMN uid  INTEGER DEFAULT 0; "
    "ALTER TABLE client_db.node_table ADD COLUMN gid  INTEGER DEFAULT 0; "
    "ALTER TABLE client_db.node_table ADD COLUMN mode INTEGER DEFAULT 0; "
    "ALTER TABLE client_db.node_table ADD COLUMN acl_hash TEXT DEFAULT ''; "
    "ALTER TABLE client_db.node_table ADD COLUMN share_priv_hash TEXT DEFAULT ''; ";

}  // namespace updater::server::sql
