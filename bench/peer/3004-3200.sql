@attach data user client
BEGIN TRANSACTION;
CREATE TABLE IF NOT EXISTS data_db.log_table (
  type INTEGER NOT NULL, uid INTEGER, username VARCHAR, view_id INTEGER, share_name VARCHAR, share_type INTEGER,
  time INTEGER NOT NULL, s1 VARCHAR COLLATE NOCASE, s2 VARCHAR COLLATE NOCASE, s3 VARCHAR COLLATE NOCASE,
  s4 VARCHAR COLLATE NOCASE, s5 VARCHAR COLLATE NOCASE, p1 VARCHAR COLLATE NOCASE, p2 VARCHAR COLLATE NOCASE,
  p3 VARCHAR COLLATE NOCASE, p4 VARCHAR COLLATE NOCASE, p5 VARCHAR COLLATE NOCASE);
@index data_db.log_table type uid username view_id share_name time s1 s2 s3 s4 s5
INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('node_delta_file_id', '1');
INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('remove_repo', '0');
INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('use_log_del_cnt', '1');
INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('log_del_cnt', '1000000');
INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('use_log_del_span', '1');
INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('log_del_span', '2592000');
CREATE TABLE IF NOT EXISTS user_db.profile_table (id INTEGER PRIMARY KEY AUTOINCREMENT, name VARCHAR NOT NULL,
  context VARCHAR NOT NULL DEFAULT '{}');
CREATE TABLE IF NOT EXISTS user_db.profile_apply_table (profile_id INTEGER, user_id INTEGAR,
  PRIMARY KEY (profile_id, user_id) ON CONFLICT IGNORE);
CREATE INDEX IF NOT EXISTS user_db.profile_id_idx ON profile_table(id);
CREATE INDEX IF NOT EXISTS user_db.profile_apply_id_idx ON profile_apply_table(profile_id);
CREATE INDEX IF NOT EXISTS user_db.profile_apply_uid_idx ON profile_apply_table(user_id);
END TRANSACTION;

BEGIN TRANSACTION;
CREATE TABLE IF NOT EXISTS data_db.new_node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER,
  view_id INTEGER, attribute INTEGER, max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER,
  ctime DATETIME DEFAULT (strftime('%s','now')), mtime DATETIME DEFAULT (strftime('%s','now')),
  name VARCHAR NOT NULL COLLATE NOCASE, path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL,
  v_base_id INTEGER, v_file_id INTEGER, v_file_size INTEGER, v_file_hash VARCHAR(40), v_mtime DATETIME,
  v_exec_bit INTEGER, v_uid INTEGER, v_gid INTEGER, v_mode INTEGER, v_sess_id INTEGER, v_client_id VARCHAR,
  v_mac_attr BLOB DEFAULT NULL, v_acl_attribute TEXT DEFAULT NULL, v_acl_hash TEXT DEFAULT NULL,
  v_share_priv_disabled INTEGER DEFAULT 0, v_share_priv_deny_list TEXT DEFAULT '',
  v_share_priv_ro_list TEXT DEFAULT '', v_share_priv_rw_list TEXT DEFAULT '', v_share_priv_hash TEXT DEFAULT '',
  node_delta_file_id INTEGER);
INSERT INTO data_db.new_node_table SELECT n.node_id, n.parent_id, n.view_id, n.attribute, n.max_id, n.sync_id,
  n.ver_cnt, n.ctime, n.mtime, n.name, n.path, n.data, v.base_id, v.file_id, v.file_size, v.file_hash, v.mtime,
  v.exec_bit, v.uid, v.gid, v.mode, v.sess_id, v.client_id, v.mac_attr, v.acl_attribute, v.acl_hash,
  v.share_priv_disabled, v.share_priv_deny_list, v.share_priv_ro_list, v.share_priv_rw_list, v.share_priv_hash, 0
  FROM data_db.node_table as n
  LEFT JOIN data_db.version_table as v ON (n.node_id = v.node_id AND n.sync_id = v.sync_id);
DROP TABLE data_db.node_table;
ALTER TABLE data_db.new_node_table RENAME TO node_table;
@index data_db.node_table node_id parent_id view_id attribute max_id sync_id name path
END TRANSACTION;
@version master data user client
@detach data user client
