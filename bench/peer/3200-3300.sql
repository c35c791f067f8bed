@attach data log user client
PRAGMA log_db.journal_mode = WAL;
PRAGMA log_db.synchronous = NORMAL;
BEGIN TRANSACTION;
CREATE TABLE IF NOT EXISTS log_db.log_table (
  type INTEGER NOT NULL, uid INTEGER, username VARCHAR, view_id INTEGER, share_name VARCHAR, share_type INTEGER,
  time INTEGER NOT NULL, s1 VARCHAR COLLATE NOCASE, s2 VARCHAR COLLATE NOCASE, s3 VARCHAR COLLATE NOCASE,
  s4 VARCHAR COLLATE NOCASE, s5 VARCHAR COLLATE NOCASE, p1 VARCHAR COLLATE NOCASE, p2 VARCHAR COLLATE NOCASE,
  p3 VARCHAR COLLATE NOCASE, p4 VARCHAR COLLATE NOCASE, p5 VARCHAR COLLATE NOCASE);
CREATE TABLE IF NOT EXISTS log_db.config_table (    key       VARCHAR PRIMARY KEY ON CONFLICT REPLACE,
  value     VARCHAR DEFAULT '' );
INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('version', '3300');
INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('branch', 'master');
INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('min_index', '0');
INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('earlist_time', '0');
INSERT OR REPLACE INTO log_db.config_table (key, value)
  VALUES ('use_log_del_cnt', (SELECT value FROM data_db.config_table WHERE key like 'use_log_del_cnt'));
INSERT OR REPLACE INTO log_db.config_table (key, value)
  VALUES ('log_del_cnt', (SELECT value FROM data_db.config_table WHERE key like 'log_del_cnt'));
INSERT OR REPLACE INTO log_db.config_table (key, value)
  VALUES ('use_log_del_span', (SELECT value FROM data_db.config_table WHERE key like 'use_log_del_span'));
INSERT OR REPLACE INTO log_db.config_table (key, value)
  VALUES ('log_del_span', (SELECT value FROM data_db.config_table WHERE key like 'log_del_span'));
@index log_db.log_table type uid username view_id share_name time s1 s2 s3 s4 s5
INSERT INTO log_db.log_table SELECT * FROM data_db.log_table;
DROP TABLE data_db.log_table;
DELETE FROM data_db.config_table WHERE key like 'use_log_del_cnt';
DELETE FROM data_db.config_table WHERE key like 'log_del_cnt';
DELETE FROM data_db.config_table WHERE key like 'use_log_del_span';
DELETE FROM data_db.config_table WHERE key like 'log_del_span';
END TRANSACTION;
@version master data user client
@detach data log user client
.open '$data'
ANALYZE;
VACUUM;
