@each view
.open '$view_db'
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
BEGIN TRANSACTION;
CREATE TABLE node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, attribute INTEGER,
  max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER, ctime DATETIME DEFAULT (strftime('%s','now')),
  mtime DATETIME DEFAULT (strftime('%s','now')), name VARCHAR NOT NULL COLLATE NOCASE,
  path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL, v_base_id INTEGER,
  v_file_uuid TEXT DEFAULT NULL, v_file_id INTEGER, v_file_size INTEGER, v_file_hash VARCHAR(40),
  v_mtime DATETIME, v_exec_bit INTEGER, v_uid INTEGER, v_gid INTEGER, v_mode INTEGER, v_sess_id INTEGER,
  v_client_id VARCHAR, v_mac_attr BLOB DEFAULT NULL, v_acl_attribute TEXT DEFAULT NULL,
  v_acl_hash TEXT DEFAULT NULL, v_share_priv_disabled INTEGER DEFAULT 0, v_share_priv_deny_list TEXT DEFAULT '',
  v_share_priv_ro_list TEXT DEFAULT '', v_share_priv_rw_list TEXT DEFAULT '', v_share_priv_hash TEXT DEFAULT '',
  node_delta_file_uuid TEXT DEFAULT NULL, node_delta_file_id INTEGER, sign_id INTEGER);
CREATE TABLE version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, attribute INTEGER,
  sync_id INTEGER, base_id INTEGER, ctime DATATIME DEFAULT (strftime('%s','now')), file_uuid TEXT DEFAULT NULL,
  file_id INTEGER, file_size INTEGER, file_hash VARCHAR(40), mtime DATETIME, exec_bit INTEGER, uid INTEGER,
  gid INTEGER, mode INTEGER, sess_id INTEGER, client_id VARCHAR, win_attr BLOB DEFAULT NULL,
  linux_attr BLOB DEFAULT NULL, mac_attr BLOB DEFAULT NULL, plat_attr BLOB DEFAULT NULL,
  acl_attribute TEXT DEFAULT NULL, acl_hash TEXT DEFAULT NULL, share_priv_disabled INTEGER DEFAULT 0,
  share_priv_deny_list TEXT DEFAULT '', share_priv_ro_list TEXT DEFAULT '', share_priv_rw_list TEXT DEFAULT '',
  share_priv_hash TEXT DEFAULT '');
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE TABLE tree_table (node_id INTEGER NOT NULL, parent_id INTEGER NOT NULL, distance INTEGER NOT NULL);
CREATE TABLE temp_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
INSERT OR IGNORE INTO config_table (key, value) VALUES ('sync_id', '0');
INSERT OR IGNORE INTO config_table (key, value) VALUES ('sign_id', '0');
INSERT OR IGNORE INTO config_table (key, value) VALUES ('rotate_cnt', '32');
INSERT OR IGNORE INTO config_table (key, value) VALUES ('remove_repo', '0');
INSERT OR IGNORE INTO config_table (key, value) VALUES ('rotate_span', '15552000');
INSERT INTO config_table (key, value) VALUES ('version', '4150');
INSERT INTO config_table (key, value) VALUES ('branch', 'master');
INSERT OR IGNORE INTO temp_table (key, value) VALUES ('last_insert_node_id', 0);
INSERT OR IGNORE INTO temp_table (key, value) VALUES ('parent_id', 0);
INSERT OR IGNORE INTO temp_table (key, value) VALUES ('removed_file_id', '');
INSERT OR IGNORE INTO temp_table (key, value) VALUES ('removed_node_delta_id', '');
@early @index main.node_table node_id parent_id attribute max_id sync_id name path
@early @index main.version_table ver_id node_id attribute sync_id sess_id
@early @index main.config_table key
@early @index main.tree_table node_id parent_id distance
@early @index main.temp_table key
CREATE TRIGGER version_delete_trigger AFTER DELETE ON version_table FOR EACH ROW BEGIN
  UPDATE temp_table SET value = (value || ' (' || OLD.file_uuid || ', ' || OLD.file_id || ')')
    WHERE OLD.file_uuid != '' AND OLD.file_id != 0 AND key = 'removed_file_id';
  UPDATE temp_table SET value = (value || ' (' || get_mac_attr_uuid(OLD.mac_attr) || ', ' ||
    get_mac_attr_file_id(OLD.mac_attr) || ')') WHERE get_mac_attr_uuid(OLD.mac_attr) != ''
    AND get_mac_attr_file_id(OLD.mac_attr) != 0 AND key = 'removed_file_id';
  END;
END TRANSACTION;

@once
.open '$file_db'
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
BEGIN TRANSACTION;
CREATE TABLE file_table (file_id INTEGER PRIMARY KEY, attribute INTEGER DEFAULT 0, ref_cnt INTEGER DEFAULT 0,
  size INTEGER DEFAULT 0, hash VARCHAR(40) DEFAULT '');
CREATE TABLE delta_table (node_id INTEGER, from_id INTEGER, to_id INTEGER, attribute INTEGER,
  delta_file_id INTEGER);
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
INSERT INTO config_table (key, value) VALUES ('version', '4150');
INSERT INTO config_table (key, value) VALUES ('branch', 'master');
INSERT INTO config_table (key, value) VALUES ('file_id', 0);
INSERT INTO config_table (key, value) VALUES ('delta_id', 0);
INSERT INTO config_table (key, value) VALUES ('node_delta_id', 0);
@early @index main.file_table file_id attribute ref_cnt size hash
@early @index main.delta_table node_id from_id to_id delta_file_id
@early @index main.config_table key
END TRANSACTION;

.open '$new_data'
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
BEGIN TRANSACTION;
CREATE TABLE volume_table (uuid VARCHAR PRIMARY KEY, repo_path VARCHAR DEFAULT '');
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
@index main.volume_table uuid
@index main.config_table key
END TRANSACTION;

.open '$scratch'
@attach data log user client

@each view
ATTACH DATABASE '$view_db' AS view_db;
INSERT INTO view_db.node_table SELECT node_id, parent_id, attribute, max_id, sync_id, ver_cnt, ctime, mtime, name,
  path, data, v_base_id, (CASE WHEN v_file_id > 0 THEN '$uuid' ELSE NULL END) AS v_file_uuid, v_file_id,
  v_file_size, v_file_hash, v_mtime, v_exec_bit, v_uid, v_gid, v_mode, v_sess_id, v_client_id,
  (CASE WHEN v_mac_attr = '' THEN '' ELSE 'uuid=$uuid&' || v_mac_attr END), v_acl_attribute, v_acl_hash,
  v_share_priv_disabled, v_share_priv_deny_list, v_share_priv_ro_list, v_share_priv_rw_list, v_share_priv_hash,
  (CASE WHEN node_delta_file_id > 0 THEN '$uuid' ELSE NULL END) AS node_delta_file_uuid, node_delta_file_id,
  0 AS sign_id FROM data_db.node_table WHERE data_db.node_table.view_id = $view;
INSERT INTO view_db.version_table SELECT ver_id, node_id, attribute, sync_id, base_id, ctime,
  (CASE WHEN file_id > 0 THEN '$uuid' ELSE NULL END) AS file_uuid, file_id, file_size, file_hash, mtime, exec_bit,
  uid, gid, mode, sess_id, client_id, win_attr, linux_attr,
  (CASE WHEN mac_attr = '' THEN '' ELSE 'uuid=$uuid&' || mac_attr END), plat_attr, acl_attribute, acl_hash,
  share_priv_disabled, share_priv_deny_list, share_priv_ro_list, share_priv_rw_list, share_priv_hash
  FROM data_db.version_table WHERE node_id IN
  (SELECT node_id FROM data_db.node_table WHERE data_db.node_table.view_id = $view);
INSERT INTO view_db.tree_table SELECT * FROM data_db.tree_table WHERE node_id IN
  (SELECT node_id FROM data_db.node_table WHERE data_db.node_table.view_id = $view);
UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'sync_id')
  WHERE key = 'sync_id';
UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'rotate_cnt')
  WHERE key = 'rotate_cnt';
UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'remove_repo')
  WHERE key = 'remove_repo';
UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'rotate_span')
  WHERE key = 'rotate_span';
@late @index view_db.node_table node_id parent_id attribute max_id sync_id name path
@late @index view_db.version_table ver_id node_id attribute sync_id sess_id
@late @index view_db.config_table key
@late @index view_db.tree_table node_id parent_id distance
@late @index view_db.temp_table key
UPDATE view_db.node_table SET ver_cnt =
  (SELECT COUNT(*) FROM view_db.version_table WHERE node_id = node_table.node_id) WHERE attribute & 1;
DETACH DATABASE view_db;

@once
ATTACH DATABASE '$file_db' AS file_db;
INSERT INTO file_db.file_table SELECT * FROM data_db.file_table;
INSERT INTO file_db.delta_table SELECT * FROM data_db.delta_table;
UPDATE file_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'file_id')
  WHERE key = 'file_id';
UPDATE file_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'delta_file_id')
  WHERE key = 'delta_id';
UPDATE file_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'node_delta_file_id')
  WHERE key = 'node_delta_id';
@late @index file_db.file_table file_id attribute ref_cnt size hash
@late @index file_db.delta_table node_id from_id to_id delta_file_id
@late @index file_db.config_table key
DETACH DATABASE file_db;
INSERT OR REPLACE INTO user_db.config_table (key, value) VALUES ('view_id',
  (CASE WHEN (SELECT MAX(view_id) FROM user_table) IS NOT NULL THEN ((SELECT MAX(view_id) FROM user_table) + 1)
   ELSE 1 END));
CREATE TABLE IF NOT EXISTS user_db.customized_rotate_cnt_table (
  view_id INTEGER PRIMARY KEY ON CONFLICT REPLACE, rotate_cnt INTEGER );

ATTACH DATABASE '$new_data' AS new_data_db;
INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'row1';
INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'serial';
INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'rotate_cnt';
INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'remove_repo';
INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'rotate_span';
INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'version';
INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'branch';
INSERT INTO new_data_db.volume_table (uuid, repo_path) VALUES ('$uuid', '$sync');
DETACH DATABASE new_data_db;
INSERT INTO client_db.config_table (key, value) VALUES
  ('sync_id_syncd', (SELECT value FROM data_db.config_table WHERE key = 'sync_id'));

@each view
INSERT INTO client_db.config_table (key, value) VALUES ('sync_id_view_$view',
  (CASE WHEN (SELECT sync_id FROM progress_table WHERE view_id = $view) IS NOT NULL
   THEN (SELECT sync_id FROM progress_table WHERE view_id = $view)
   ELSE (SELECT value FROM client_db.config_table WHERE key = 'sync_id') END));

@once
DETACH DATABASE data_db;
.shell mv -f '$new_data' '$data'
ATTACH DATABASE '$data' AS data_db;
@version master data user client log
@detach data log user client
