PRAGMA auto_vacuum = 1;
PRAGMA journal_mode = WAL;
CREATE TABLE log_table (
  type INTEGER NOT NULL,
  uid INTEGER,
  username VARCHAR,
  view_id INTEGER,
  share_name VARCHAR,
  share_type INTEGER,
  time INTEGER NOT NULL,
  s1 VARCHAR COLLATE NOCASE,
  s2 VARCHAR COLLATE NOCASE,
  s3 VARCHAR COLLATE NOCASE,
  s4 VARCHAR COLLATE NOCASE,
  s5 VARCHAR COLLATE NOCASE,
  p1 VARCHAR COLLATE NOCASE,
  p2 VARCHAR COLLATE NOCASE,
  p3 VARCHAR COLLATE NOCASE,
  p4 VARCHAR COLLATE NOCASE,
  p5 VARCHAR COLLATE NOCASE);
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
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

INSERT INTO config_table (key, value) VALUES
  ('min_index', '0'),
  ('earlist_time', '0'),
  ('use_log_del_cnt', '1'),
  ('log_del_cnt', '500'),
  ('use_log_del_span', '1'),
  ('log_del_span', '2592000');
