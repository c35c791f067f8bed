// What each version changed in the databases, as statements: run in their order they make the layouts.
// Defaults, collations and constraints are left out, because they are not compared.
#pragma once

#include <array>

#include "ctl/volume_survey.h"

namespace ctl::golden {

struct Change {
  DatabaseSurvey::Kind kind;
  const char* name;  // of a shared database
  int version;
  const char* statements;
};

// First in the data database, then in one of its own.
inline constexpr const char* kLogTable = R"(
CREATE TABLE log_table (type INTEGER NOT NULL, uid INTEGER, username VARCHAR, view_id INTEGER, share_name
 VARCHAR, share_type INTEGER, time INTEGER NOT NULL, s1 VARCHAR, s2 VARCHAR, s3 VARCHAR, s4 VARCHAR, s5
 VARCHAR, p1 VARCHAR, p2 VARCHAR, p3 VARCHAR, p4 VARCHAR, p5 VARCHAR);
CREATE INDEX log_table_type_index ON log_table (type);
CREATE INDEX log_table_uid_index ON log_table (uid);
CREATE INDEX log_table_username_index ON log_table (username);
CREATE INDEX log_table_view_id_index ON log_table (view_id);
CREATE INDEX log_table_share_name_index ON log_table (share_name);
CREATE INDEX log_table_time_index ON log_table (time);
CREATE INDEX log_table_s1_index ON log_table (s1);
CREATE INDEX log_table_s2_index ON log_table (s2);
CREATE INDEX log_table_s3_index ON log_table (s3);
CREATE INDEX log_table_s4_index ON log_table (s4);
CREATE INDEX log_table_s5_index ON log_table (s5);
)";

inline constexpr std::array kChanges = {
    Change{DatabaseSurvey::Kind::kShared, "data", 2577, R"(
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE TABLE node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, view_id INTEGER,
 attribute INTEGER, max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER, ctime DATETIME, mtime DATETIME, name
 VARCHAR, path VARCHAR, data VARCHAR);
CREATE TABLE version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, attribute INTEGER,
 sync_id INTEGER, base_id INTEGER, ctime DATATIME, file_id INTEGER, file_size INTEGER, file_hash
 VARCHAR(40), mtime DATETIME, exec_bit INTEGER, uid INTEGER, gid INTEGER, sess_id INTEGER, client_id
 VARCHAR, win_attr BLOB, linux_attr BLOB, mac_attr BLOB, plat_attr BLOB);
CREATE TABLE tree_table (node_id INTEGER NOT NULL, parent_id INTEGER NOT NULL, distance INTEGER NOT NULL);
CREATE TABLE file_table (file_id INTEGER PRIMARY KEY, attribute INTEGER DEFAULT 0, ref_cnt INTEGER DEFAULT
 0, size INTEGER DEFAULT 0, hash VARCHAR(40) DEFAULT '');
CREATE TABLE delta_table (node_id INTEGER, from_id INTEGER, to_id INTEGER, attribute INTEGER, delta_file_id
 INTEGER);
CREATE INDEX node_table_parent_id_index ON node_table (parent_id);
CREATE INDEX node_table_view_id_index ON node_table (view_id);
CREATE INDEX node_table_path_index ON node_table (path);
CREATE INDEX version_table_sync_id_index ON version_table (sync_id);
)"},
    Change{DatabaseSurvey::Kind::kShared, "data", 3004, R"(
ALTER TABLE version_table ADD COLUMN mode INTEGER;
ALTER TABLE version_table ADD COLUMN acl_attribute TEXT;
ALTER TABLE version_table ADD COLUMN acl_hash TEXT;
ALTER TABLE version_table ADD COLUMN share_priv_disabled INTEGER;
ALTER TABLE version_table ADD COLUMN share_priv_deny_list TEXT;
ALTER TABLE version_table ADD COLUMN share_priv_ro_list TEXT;
ALTER TABLE version_table ADD COLUMN share_priv_rw_list TEXT;
ALTER TABLE version_table ADD COLUMN share_priv_hash TEXT;
)"},
    Change{DatabaseSurvey::Kind::kShared, "data", 3200, R"(
ALTER TABLE node_table ADD COLUMN v_base_id INTEGER;
ALTER TABLE node_table ADD COLUMN v_file_id INTEGER;
ALTER TABLE node_table ADD COLUMN v_file_size INTEGER;
ALTER TABLE node_table ADD COLUMN v_file_hash VARCHAR(40);
ALTER TABLE node_table ADD COLUMN v_mtime DATETIME;
ALTER TABLE node_table ADD COLUMN v_exec_bit INTEGER;
ALTER TABLE node_table ADD COLUMN v_uid INTEGER;
ALTER TABLE node_table ADD COLUMN v_gid INTEGER;
ALTER TABLE node_table ADD COLUMN v_sess_id INTEGER;
ALTER TABLE node_table ADD COLUMN v_client_id VARCHAR;
ALTER TABLE node_table ADD COLUMN v_mac_attr BLOB;
ALTER TABLE node_table ADD COLUMN v_mode INTEGER;
ALTER TABLE node_table ADD COLUMN v_acl_attribute TEXT;
ALTER TABLE node_table ADD COLUMN v_acl_hash TEXT;
ALTER TABLE node_table ADD COLUMN v_share_priv_disabled INTEGER;
ALTER TABLE node_table ADD COLUMN v_share_priv_deny_list TEXT;
ALTER TABLE node_table ADD COLUMN v_share_priv_ro_list TEXT;
ALTER TABLE node_table ADD COLUMN v_share_priv_rw_list TEXT;
ALTER TABLE node_table ADD COLUMN v_share_priv_hash TEXT;
ALTER TABLE node_table ADD COLUMN node_delta_file_id INTEGER;
CREATE INDEX node_table_node_id_index ON node_table (node_id);
CREATE INDEX node_table_attribute_index ON node_table (attribute);
CREATE INDEX node_table_max_id_index ON node_table (max_id);
CREATE INDEX node_table_sync_id_index ON node_table (sync_id);
CREATE INDEX node_table_name_index ON node_table (name);
)"},
    Change{DatabaseSurvey::Kind::kShared, "data", 3200, kLogTable},
    Change{DatabaseSurvey::Kind::kShared, "data", 3300, R"(
DROP TABLE log_table;
)"},
    Change{DatabaseSurvey::Kind::kShared, "data", 3400, R"(
DROP TABLE node_table;
DROP TABLE version_table;
DROP TABLE tree_table;
DROP TABLE file_table;
DROP TABLE delta_table;
CREATE TABLE volume_table (uuid VARCHAR PRIMARY KEY, repo_path VARCHAR DEFAULT '');
CREATE INDEX volume_table_uuid_index ON volume_table (uuid);
CREATE INDEX config_table_key_index ON config_table (key);
)"},
    Change{DatabaseSurvey::Kind::kShared, "user", 2577, R"(
CREATE TABLE user_table (id INTEGER PRIMARY KEY AUTOINCREMENT, attribute INTEGER, view_id INTEGER, name
 VARCHAR UNIQUE, uid INTEGER, gid INTEGER, user_type INTEGER NOT NULL, watch_path VARCHAR NOT NULL);
CREATE TABLE session_table (uid INTEGER, attribute INTEGER, group_id INTEGER, client VARCHAR, ip VARCHAR,
 ctime DATETIME, sess_id VARCHAR UNIQUE);
CREATE TABLE config_table (key VARCHAR UNIQUE, value VARCHAR);
)"},
    Change{DatabaseSurvey::Kind::kShared, "user", 3200, R"(
CREATE TABLE profile_table (id INTEGER PRIMARY KEY AUTOINCREMENT, name VARCHAR, context VARCHAR);
CREATE TABLE profile_apply_table (profile_id INTEGER, user_id INTEGAR, PRIMARY KEY (profile_id, user_id));
CREATE INDEX profile_id_idx ON profile_table (id);
CREATE INDEX profile_apply_id_idx ON profile_apply_table (profile_id);
CREATE INDEX profile_apply_uid_idx ON profile_apply_table (user_id);
)"},
    Change{DatabaseSurvey::Kind::kShared, "user", 3400, R"(
CREATE TABLE customized_rotate_cnt_table (view_id INTEGER PRIMARY KEY, rotate_cnt INTEGER);
)"},
    Change{DatabaseSurvey::Kind::kShared, "user", 3450, R"(
ALTER TABLE profile_table ADD COLUMN attribute INTEGER;
CREATE TABLE profile_apply_view_table (profile_id INTEGER, view_id INTEGER, PRIMARY KEY (profile_id,
 view_id));
CREATE INDEX profile_apply_view_id_idx ON profile_apply_view_table (profile_id);
CREATE INDEX profile_apply_view_vid_idx ON profile_apply_view_table (view_id);
)"},
    Change{DatabaseSurvey::Kind::kShared, "user", 4000, R"(
DROP TABLE customized_rotate_cnt_table;
ALTER TABLE session_table ADD COLUMN client_type INTEGER;
ALTER TABLE session_table ADD COLUMN client_platform VARCHAR;
CREATE TABLE backup_task_table (session VARCHAR, view_id INTEGER, relative_path VARCHAR, is_readonly
 INTEGER);
CREATE TABLE rotate_setting_table (view_id INTEGER PRIMARY KEY, rotate_cnt INTEGER, rotate_policy VARCHAR);
CREATE INDEX session_task_index ON backup_task_table (session);
)"},
    Change{DatabaseSurvey::Kind::kShared, "client", 2577, R"(
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE TABLE node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, view_id INTEGER,
 sync_id INTEGER, mtime DATETIME, file_hash VARCHAR(40), name VARCHAR, path VARCHAR);
CREATE TABLE progress_table (view_id INTEGER, sync_id INTEGER);
CREATE INDEX node_table_path_index ON node_table (path);
)"},
    Change{DatabaseSurvey::Kind::kShared, "client", 3004, R"(
ALTER TABLE node_table ADD COLUMN uid INTEGER;
ALTER TABLE node_table ADD COLUMN gid INTEGER;
ALTER TABLE node_table ADD COLUMN mode INTEGER;
ALTER TABLE node_table ADD COLUMN acl_hash TEXT;
ALTER TABLE node_table ADD COLUMN share_priv_hash TEXT;
)"},
    Change{DatabaseSurvey::Kind::kShared, "log", 3300, kLogTable},
    Change{DatabaseSurvey::Kind::kShared, "log", 3300, R"(
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
)"},
    Change{DatabaseSurvey::Kind::kFile, "", 3400, R"(
CREATE TABLE file_table (file_id INTEGER PRIMARY KEY, attribute INTEGER DEFAULT 0, ref_cnt INTEGER DEFAULT
 0, size INTEGER DEFAULT 0, hash VARCHAR(40) DEFAULT '');
CREATE TABLE delta_table (node_id INTEGER, from_id INTEGER, to_id INTEGER, attribute INTEGER, delta_file_id
 INTEGER);
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE INDEX file_table_file_id_index ON file_table (file_id);
CREATE INDEX file_table_attribute_index ON file_table (attribute);
CREATE INDEX file_table_ref_cnt_index ON file_table (ref_cnt);
CREATE INDEX file_table_size_index ON file_table (size);
CREATE INDEX file_table_hash_index ON file_table (hash);
CREATE INDEX delta_table_node_id_index ON delta_table (node_id);
CREATE INDEX delta_table_from_id_index ON delta_table (from_id);
CREATE INDEX delta_table_to_id_index ON delta_table (to_id);
CREATE INDEX delta_table_delta_file_id_index ON delta_table (delta_file_id);
CREATE INDEX config_table_key_index ON config_table (key);
)"},
    Change{DatabaseSurvey::Kind::kView, "", 3400, R"(
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE TABLE tree_table (node_id INTEGER NOT NULL, parent_id INTEGER NOT NULL, distance INTEGER NOT NULL);
CREATE TABLE node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, attribute INTEGER,
 max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER, ctime DATETIME, mtime DATETIME, name VARCHAR, path
 VARCHAR, data VARCHAR, v_base_id INTEGER, v_file_uuid TEXT, v_file_id INTEGER, v_file_size INTEGER,
 v_file_hash VARCHAR(40), v_mtime DATETIME, v_exec_bit INTEGER, v_uid INTEGER, v_gid INTEGER, v_mode
 INTEGER, v_sess_id INTEGER, v_client_id VARCHAR, v_mac_attr BLOB, v_acl_attribute TEXT, v_acl_hash TEXT,
 v_share_priv_disabled INTEGER, v_share_priv_deny_list TEXT, v_share_priv_ro_list TEXT, v_share_priv_rw_list
 TEXT, v_share_priv_hash TEXT, node_delta_file_uuid TEXT, node_delta_file_id INTEGER, sign_id INTEGER);
CREATE TABLE version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, attribute INTEGER,
 sync_id INTEGER, base_id INTEGER, ctime DATATIME, file_uuid TEXT, file_id INTEGER, file_size INTEGER,
 file_hash VARCHAR(40), mtime DATETIME, exec_bit INTEGER, uid INTEGER, gid INTEGER, mode INTEGER, sess_id
 INTEGER, client_id VARCHAR, win_attr BLOB, linux_attr BLOB, mac_attr BLOB, plat_attr BLOB, acl_attribute
 TEXT, acl_hash TEXT, share_priv_disabled INTEGER, share_priv_deny_list TEXT, share_priv_ro_list TEXT,
 share_priv_rw_list TEXT, share_priv_hash TEXT);
CREATE TABLE temp_table (key VARCHAR PRIMARY KEY, value VARCHAR);
CREATE INDEX node_table_node_id_index ON node_table (node_id);
CREATE INDEX node_table_parent_id_index ON node_table (parent_id);
CREATE INDEX node_table_attribute_index ON node_table (attribute);
CREATE INDEX node_table_max_id_index ON node_table (max_id);
CREATE INDEX node_table_sync_id_index ON node_table (sync_id);
CREATE INDEX node_table_name_index ON node_table (name);
CREATE INDEX node_table_path_index ON node_table (path);
CREATE INDEX version_table_ver_id_index ON version_table (ver_id);
CREATE INDEX version_table_node_id_index ON version_table (node_id);
CREATE INDEX version_table_attribute_index ON version_table (attribute);
CREATE INDEX version_table_sync_id_index ON version_table (sync_id);
CREATE INDEX version_table_sess_id_index ON version_table (sess_id);
CREATE INDEX config_table_key_index ON config_table (key);
CREATE INDEX tree_table_node_id_index ON tree_table (node_id);
CREATE INDEX tree_table_parent_id_index ON tree_table (parent_id);
CREATE INDEX tree_table_distance_index ON tree_table (distance);
CREATE INDEX temp_table_key_index ON temp_table (key);
CREATE TRIGGER version_delete_trigger AFTER DELETE ON version_table FOR EACH ROW BEGIN UPDATE temp_table SET
 value = (value || ' (' || OLD.file_uuid || ', ' || OLD.file_id || ')') WHERE OLD.file_uuid != '' AND
 OLD.file_id != 0 AND key = 'removed_file_id';
 UPDATE temp_table SET value = (value || ' (' || get_mac_attr_uuid(OLD.mac_attr) || ', ' ||
 get_mac_attr_file_id(OLD.mac_attr) || ')') WHERE get_mac_attr_uuid(OLD.mac_attr) != '' AND
 get_mac_attr_file_id(OLD.mac_attr) != 0 AND key = 'removed_file_id'; END;
)"},
    Change{DatabaseSurvey::Kind::kView, "", 4000, R"(
CREATE TABLE remove_file_table (uuid VARCHAR, file_id INTEGER);
CREATE INDEX tree_table_node_parent_index ON tree_table (node_id, parent_id);
DROP TRIGGER version_delete_trigger;
CREATE TRIGGER version_delete_trigger AFTER DELETE ON version_table FOR EACH ROW BEGIN INSERT INTO
 remove_file_table (uuid, file_id) SELECT OLD.file_uuid, OLD.file_id WHERE OLD.file_uuid != '' AND
 OLD.file_id != 0;
INSERT INTO remove_file_table (uuid, file_id) SELECT get_mac_attr_uuid(OLD.mac_attr),
 get_mac_attr_file_id(OLD.mac_attr) WHERE get_mac_attr_uuid(OLD.mac_attr) != '' AND
 get_mac_attr_file_id(OLD.mac_attr) != 0;
END;
)"},
    Change{DatabaseSurvey::Kind::kView, "", 4100, R"(
ALTER TABLE node_table ADD COLUMN v_committer_sess_id TEXT;
ALTER TABLE version_table ADD COLUMN committer_sess_id TEXT;
)"},
    Change{DatabaseSurvey::Kind::kView, "", 4150, R"(
DROP INDEX node_table_attribute_index;
DROP INDEX version_table_attribute_index;
ALTER TABLE node_table DROP COLUMN attribute;
ALTER TABLE version_table DROP COLUMN attribute;
ALTER TABLE node_table ADD COLUMN removed INTEGER;
ALTER TABLE node_table ADD COLUMN file_type INTEGER;
ALTER TABLE version_table ADD COLUMN removed INTEGER;
ALTER TABLE version_table ADD COLUMN file_type INTEGER;
CREATE INDEX node_table_removed_index ON node_table (removed);
CREATE INDEX node_table_file_type_index ON node_table (file_type);
CREATE INDEX version_table_removed_index ON version_table (removed);
CREATE INDEX version_table_file_type_index ON version_table (file_type);
CREATE INDEX node_table_path_index_case ON node_table (path);
)"},
};

}  // namespace ctl::golden
