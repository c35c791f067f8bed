PRAGMA journal_mode = WAL;
CREATE TABLE node_table (
  node_id INTEGER PRIMARY KEY AUTOINCREMENT,
  parent_id INTEGER,
  attribute INTEGER,
  max_id INTEGER,
  sync_id INTEGER,
  ver_cnt INTEGER,
  ctime DATETIME DEFAULT (strftime('%s','now')),
  mtime DATETIME DEFAULT (strftime('%s','now')),
  name VARCHAR NOT NULL COLLATE NOCASE,
  path VARCHAR NOT NULL COLLATE NOCASE,
  data VARCHAR DEFAULT NULL,
  v_base_id INTEGER,
  v_file_uuid TEXT DEFAULT NULL,
  v_file_id INTEGER,
  v_file_size INTEGER,
  v_file_hash VARCHAR(40),
  v_mtime DATETIME,
  v_exec_bit INTEGER,
  v_uid INTEGER,
  v_gid INTEGER,
  v_mode INTEGER,
  v_sess_id INTEGER,
  v_client_id VARCHAR,
  v_mac_attr BLOB DEFAULT NULL,
  v_acl_attribute TEXT DEFAULT NULL,
  v_acl_hash TEXT DEFAULT NULL,
  v_share_priv_disabled INTEGER DEFAULT 0,
  v_share_priv_deny_list TEXT DEFAULT '',
  v_share_priv_ro_list TEXT DEFAULT '',
  v_share_priv_rw_list TEXT DEFAULT '',
  v_share_priv_hash TEXT DEFAULT '',
  node_delta_file_uuid TEXT DEFAULT NULL,
  node_delta_file_id INTEGER,
  sign_id INTEGER);
CREATE TABLE version_table (
  ver_id INTEGER PRIMARY KEY AUTOINCREMENT,
  node_id INTEGER,
  attribute INTEGER,
  sync_id INTEGER,
  base_id INTEGER,
  ctime DATATIME DEFAULT (strftime('%s','now')),
  file_uuid TEXT DEFAULT NULL,
  file_id INTEGER,
  file_size INTEGER,
  file_hash VARCHAR(40),
  mtime DATETIME,
  exec_bit INTEGER,
  uid INTEGER,
  gid INTEGER,
  mode INTEGER,
  sess_id INTEGER,
  client_id VARCHAR,
  win_attr BLOB DEFAULT NULL,
  linux_attr BLOB DEFAULT NULL,
  mac_attr BLOB DEFAULT NULL,
  plat_attr BLOB DEFAULT NULL,
  acl_attribute TEXT DEFAULT NULL,
  acl_hash TEXT DEFAULT NULL,
  share_priv_disabled INTEGER DEFAULT 0,
  share_priv_deny_list TEXT DEFAULT '',
  share_priv_ro_list TEXT DEFAULT '',
  share_priv_rw_list TEXT DEFAULT '',
  share_priv_hash TEXT DEFAULT '');
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE TABLE tree_table (node_id INTEGER NOT NULL, parent_id INTEGER NOT NULL, distance INTEGER NOT NULL);
CREATE TABLE temp_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE TABLE remove_file_table (uuid VARCHAR, file_id INTEGER);
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
CREATE INDEX tree_table_node_parent_index ON tree_table (node_id, parent_id);
CREATE INDEX temp_table_key_index ON temp_table (key);
CREATE TRIGGER version_delete_trigger AFTER DELETE ON version_table FOR EACH ROW BEGIN
  INSERT INTO remove_file_table (uuid, file_id) SELECT OLD.file_uuid, OLD.file_id WHERE OLD.file_uuid != '' AND OLD.file_id != 0;
  INSERT INTO remove_file_table (uuid, file_id) SELECT get_mac_attr_uuid(OLD.mac_attr), get_mac_attr_file_id(OLD.mac_attr) WHERE get_mac_attr_uuid(OLD.mac_attr) != '' AND get_mac_attr_file_id(OLD.mac_attr) != 0;
END;

INSERT INTO temp_table (key, value) VALUES
  ('last_insert_node_id', '0'),
  ('parent_id', '0'),
  ('removed_file_id', ''),
  ('removed_node_delta_id', '');
