@attach data log user client
BEGIN TRANSACTION;
ALTER TABLE user_db.session_table ADD client_type INTEGER DEFAULT 0;
ALTER TABLE user_db.session_table ADD client_platform VARCHAR DEFAULT 'Unknown';
CREATE TABLE IF NOT EXISTS user_db.backup_task_table (session VARCHAR, view_id INTEGER, relative_path VARCHAR,
  is_readonly INTEGER);
CREATE INDEX IF NOT EXISTS user_db.session_task_index ON backup_task_table(session);
UPDATE user_db.profile_apply_table SET user_id = (SELECT uid FROM user_db.user_table AS ut WHERE ut.id = user_id);
CREATE TABLE IF NOT EXISTS user_db.rotate_setting_table (view_id INTEGER PRIMARY KEY ON CONFLICT REPLACE,
  rotate_cnt INTEGER, rotate_policy VARCHAR);
INSERT INTO user_db.rotate_setting_table VALUES (0,
  (CASE WHEN EXISTS (SELECT 1 FROM user_db.customized_rotate_cnt_table WHERE view_id = 0)
   THEN (SELECT rotate_cnt FROM user_db.customized_rotate_cnt_table WHERE view_id = 0)
   WHEN (SELECT value FROM data_db.config_table WHERE key = 'remove_repo') = 1 THEN 0
   ELSE (SELECT value FROM data_db.config_table WHERE key = 'rotate_cnt') END), 'fifo');
DROP TABLE user_db.customized_rotate_cnt_table;
END TRANSACTION;

@each view
ATTACH DATABASE '$view_db' AS view_db;
CREATE TABLE IF NOT EXISTS view_db.remove_file_table (uuid VARCHAR, file_id INTEGER);
@include replace-trigger
DETACH DATABASE view_db;

@each view
ATTACH DATABASE '$view_db' AS view_db;
UPDATE view_db.config_table SET value =
  (CASE WHEN (SELECT value FROM view_db.config_table WHERE key like 'remove_repo') = 1 THEN 0
   ELSE (SELECT value FROM view_db.config_table WHERE key like 'rotate_cnt') END) WHERE key like 'rotate_cnt';
DELETE FROM view_db.config_table WHERE key like 'remove_repo';
INSERT OR REPLACE INTO user_db.rotate_setting_table
  VALUES ($row, (SELECT value FROM view_db.config_table WHERE key like 'rotate_cnt'), 'fifo');
CREATE INDEX IF NOT EXISTS view_db.tree_table_node_parent_index ON tree_table(node_id, parent_id);
DETACH DATABASE view_db;

@once
DELETE FROM data_db.config_table WHERE key like 'remove_repo' OR key like 'rotate_cnt';

@each renamed-volume
UPDATE data_db.volume_table SET uuid = '$uuid' WHERE uuid = '$old_uuid';

@each view-of-renamed-volume
ATTACH DATABASE '$view_db' AS view_db;
BEGIN TRANSACTION;
UPDATE view_db.node_table SET v_file_uuid = '$uuid' WHERE v_file_uuid = '$old_uuid';
UPDATE view_db.node_table SET node_delta_file_uuid = '$uuid' WHERE node_delta_file_uuid = '$old_uuid';
UPDATE view_db.node_table SET v_mac_attr = replace(v_mac_attr, '$old_uuid', '$uuid');
UPDATE view_db.version_table SET file_uuid = '$uuid' WHERE file_uuid = '$old_uuid';
UPDATE view_db.version_table SET mac_attr = replace(mac_attr, '$old_uuid', '$uuid');
END TRANSACTION;
DETACH DATABASE view_db;

@each renamed-volume
.shell mv '$files/$old_uuid' '$files/$uuid'

@once
@include version-everywhere
@detach data log user client
