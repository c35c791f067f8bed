PRAGMA journal_mode = WAL;
CREATE TABLE file_table (
  file_id INTEGER PRIMARY KEY,
  attribute INTEGER DEFAULT 0,
  ref_cnt INTEGER DEFAULT 0,
  size INTEGER DEFAULT 0,
  hash VARCHAR(40) DEFAULT '');
CREATE TABLE delta_table (
  node_id INTEGER,
  from_id INTEGER,
  to_id INTEGER,
  attribute INTEGER,
  delta_file_id INTEGER);
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

INSERT INTO config_table (key, value) VALUES ('file_id', '9'), ('delta_id', '4'), ('node_delta_id', '1');
INSERT INTO file_table (file_id, attribute, ref_cnt, size, hash) VALUES
  (0, 0, 0, 0, ''),
  (1, 0, 2, 10, 'da39a3ee5e6b4b0d3255bfef95601890afd80709'),
  (3, 1, 1, 5000000000, 'a9993e364706816aba3e25717850c26c9cd0d89d'),
  (4, 0, 1, 7, NULL),
  (5, NULL, NULL, NULL, 'it''s 100%'),
  (6, 0, 2, 2, 'y');
INSERT INTO delta_table (node_id, from_id, to_id, attribute, delta_file_id) VALUES
  (2, 2, 12, 0, 3),
  (3, NULL, NULL, NULL, 0);
