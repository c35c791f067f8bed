@attach data log user client
@each view
ATTACH DATABASE '$view_db' AS view_db;
BEGIN TRANSACTION;
ALTER TABLE view_db.node_table RENAME TO node_table_old;
ALTER TABLE view_db.version_table RENAME TO version_table_old;
CREATE TABLE view_db.node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, removed INTEGER,
  file_type INTEGER, max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER,
  ctime DATETIME DEFAULT (strftime('%s','now')), mtime DATETIME DEFAULT (strftime('%s','now')),
  name VARCHAR NOT NULL COLLATE NOCASE, path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL,
  v_base_id INTEGER, v_file_uuid TEXT DEFAULT NULL, v_file_id INTEGER, v_file_size INTEGER,
  v_file_hash VARCHAR(40), v_mtime DATETIME, v_exec_bit INTEGER, v_uid INTEGER, v_gid INTEGER, v_mode INTEGER,
  v_sess_id INTEGER, v_client_id VARCHAR, v_committer_sess_id TEXT DEFAULT '', v_mac_attr BLOB DEFAULT NULL,
  v_acl_attribute TEXT DEFAULT NULL, v_acl_hash TEXT DEFAULT NULL, v_share_priv_disabled INTEGER DEFAULT 0,
  v_share_priv_deny_list TEXT DEFAULT '', v_share_priv_ro_list TEXT DEFAULT '',
  v_share_priv_rw_list TEXT DEFAULT '', v_share_priv_hash TEXT DEFAULT '',
  node_delta_file_uuid TEXT DEFAULT NULL, node_delta_file_id INTEGER, sign_id INTEGER);
CREATE TABLE view_db.version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, removed INTEGER,
  file_type INTEGER, sync_id INTEGER, base_id INTEGER, ctime DATATIME DEFAULT (strftime('%s','now')),
  file_uuid TEXT DEFAULT NULL, file_id INTEGER, file_size INTEGER, file_hash VARCHAR(40), mtime DATETIME,
  exec_bit INTEGER, uid INTEGER, gid INTEGER, mode INTEGER, sess_id INTEGER, client_id VARCHAR,
  committer_sess_id TEXT DEFAULT '', win_attr BLOB DEFAULT NULL, linux_attr BLOB DEFAULT NULL,
  mac_attr BLOB DEFAULT NULL, plat_attr BLOB DEFAULT NULL, acl_attribute TEXT DEFAULT NULL,
  acl_hash TEXT DEFAULT NULL, share_priv_disabled INTEGER DEFAULT 0, share_priv_deny_list TEXT DEFAULT '',
  share_priv_ro_list TEXT DEFAULT '', share_priv_rw_list TEXT DEFAULT '', share_priv_hash TEXT DEFAULT '');
@early @index view_db.node_table node_id parent_id removed file_type max_id sync_id name path
@early CREATE INDEX IF NOT EXISTS view_db.node_table_path_index_case ON node_table (path COLLATE BINARY);
@early @index view_db.version_table ver_id node_id removed file_type sync_id sess_id
@include replace-trigger
INSERT INTO view_db.node_table SELECT node_id, parent_id, (attribute & 1), ((attribute & 2) == 2), max_id, sync_id,
  ver_cnt, ctime, mtime, name, path, data, v_base_id, v_file_uuid, v_file_id, v_file_size, v_file_hash, v_mtime,
  v_exec_bit, v_uid, v_gid, v_mode, v_sess_id, v_client_id, v_committer_sess_id, v_mac_attr, v_acl_attribute,
  v_acl_hash, v_share_priv_disabled, v_share_priv_deny_list, v_share_priv_ro_list, v_share_priv_rw_list,
  v_share_priv_hash, node_delta_file_uuid, node_delta_file_id, sign_id FROM view_db.node_table_old;
INSERT INTO view_db.version_table SELECT ver_id, node_id, (attribute & 1), ((attribute & 2) == 2), sync_id,
  base_id, ctime, file_uuid, file_id, file_size, file_hash, mtime, exec_bit, uid, gid, mode, sess_id, client_id,
  committer_sess_id, win_attr, linux_attr, mac_attr, plat_attr, acl_attribute, acl_hash, share_priv_disabled,
  share_priv_deny_list, share_priv_ro_list, share_priv_rw_list, share_priv_hash FROM view_db.version_table_old;
DROP TABLE IF EXISTS view_db.node_table_old;
DROP TABLE IF EXISTS view_db.version_table_old;
@index view_db.node_table node_id parent_id removed file_type max_id sync_id name path
CREATE INDEX IF NOT EXISTS view_db.node_table_path_index_case ON node_table (path COLLATE BINARY);
@index view_db.version_table ver_id node_id removed file_type sync_id sess_id
END;
DETACH DATABASE view_db;
@once
@include version-everywhere
@detach data log user client
