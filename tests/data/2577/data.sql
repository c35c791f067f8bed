CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE TABLE node_table (
  node_id INTEGER PRIMARY KEY AUTOINCREMENT,
  parent_id INTEGER,
  view_id INTEGER,
  attribute INTEGER,
  max_id INTEGER,
  sync_id INTEGER,
  ver_cnt INTEGER,
  ctime DATETIME DEFAULT (strftime('%s','now')),
  mtime DATETIME DEFAULT (strftime('%s','now')),
  name VARCHAR NOT NULL COLLATE NOCASE,
  path VARCHAR NOT NULL COLLATE NOCASE,
  data VARCHAR DEFAULT NULL);
CREATE TABLE version_table (
  ver_id INTEGER PRIMARY KEY AUTOINCREMENT,
  node_id INTEGER,
  attribute INTEGER,
  sync_id INTEGER,
  base_id INTEGER,
  ctime DATATIME DEFAULT (strftime('%s','now')),
  file_id INTEGER,
  file_size INTEGER,
  file_hash VARCHAR(40),
  mtime DATETIME,
  exec_bit INTEGER,
  uid INTEGER,
  gid INTEGER,
  sess_id INTEGER,
  client_id VARCHAR,
  win_attr BLOB DEFAULT NULL,
  linux_attr BLOB DEFAULT NULL,
  mac_attr BLOB DEFAULT NULL,
  plat_attr BLOB DEFAULT NULL);
CREATE TABLE tree_table (node_id INTEGER NOT NULL, parent_id INTEGER NOT NULL, distance INTEGER NOT NULL);
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
CREATE INDEX node_table_parent_id_index ON node_table (parent_id);
CREATE INDEX node_table_view_id_index ON node_table (view_id);
CREATE INDEX node_table_path_index ON node_table (path);
CREATE INDEX version_table_sync_id_index ON version_table (sync_id);

-- The key log_del_cnt is one that 3200 adds: a value that is there already stays. own_key is nobody's.
INSERT INTO config_table (key, value) VALUES
  ('row1', '1'),
  ('serial', 'it''s "100%" S/N'),
  ('sync_id', '42'),
  ('file_id', '9'),
  ('delta_file_id', '4'),
  ('rotate_cnt', '8'),
  ('rotate_span', '7776000'),
  ('log_del_cnt', '500'),
  ('own_key', 'x');

-- View 1: a file of two versions, a removed file of three, a name of 255 bytes, a removed folder of none.
-- View 4294967297: a root whose version is another one than its own, and no mac attribute of the same kind
-- twice. View 17: a shared folder, in it a folder whose count of versions is wrong and stays. View 5 has no
-- node; view 77 has no user.
INSERT INTO node_table (node_id, parent_id, view_id, attribute, max_id, sync_id, ver_cnt, ctime, mtime, name, path, data) VALUES
  (1, 0, 1, 2, 13, 1, 1, 1400000001, 1390000001, '', '/', NULL),
  (2, 1, 1, 0, 12, 12, 2, 1400000002, 1390000012, 'it''s 100% "done" %s.txt', '/it''s 100% "done" %s.txt', ''),
  (3, 1, 1, 1, 13, 13, 7, 1400000003, 1390000013, 'Größe 文件 🗂.txt', '/Größe 文件 🗂.txt', '100% of ''it'''),
  (4, 1, 1, 0, 5, 5, 9, 1400000005, 1390000005, replace(hex(zeroblob(126)), '00', 'é') || '.md', '/' || replace(hex(zeroblob(126)), '00', 'é') || '.md', NULL),
  (5, 1, 1, 3, 6, 6, 5, 1400000006, 1390000006, 'gone', '/gone', NULL),
  (6, 0, 4294967297, 2, 21, 7, 1, 1400000007, 1390000007, '', '/', NULL),
  (7, 6, 4294967297, 0, 20, 20, 1, 1400000020, 1390000020, '%d%n', '/%d%n', NULL),
  (8, 6, 4294967297, 3, 21, 21, 4, 1400000021, 1390000021, 'a;b--', '/a;b--', NULL),
  (9, 0, 17, 2, 11, 11, 1, 1400000011, 1390000011, '', '/', NULL),
  (10, 9, 17, 2, 14, 14, 6, 1400000014, 1390000014, 'Docs', '/Docs', NULL),
  (11, 10, 17, 0, 15, 15, 1, 1400000015, 1390000015, 'a\b.TXT', '/Docs/a\b.TXT', NULL),
  (12, 0, 77, 2, 16, 16, 1, 1400000016, 1390000016, '', '/', NULL);

INSERT INTO version_table (ver_id, node_id, attribute, sync_id, base_id, ctime, file_id, file_size, file_hash, mtime, exec_bit, uid, gid, sess_id, client_id, win_attr, linux_attr, mac_attr, plat_attr) VALUES
  (1, 1, 2, 1, 0, 1400000001, 0, 0, '', 1390000001, 0, 0, 0, 1, 'admin@StorageHost', NULL, NULL, NULL, NULL),
  (2, 2, 0, 2, 0, 1400000002, 0, 0, NULL, 1390000002, 0, 1026, 100, 2, 'it''s a 100% "client"', X'0001FF', NULL, '', NULL),
  (3, 2, 0, 12, 2, 1400000012, 3, 5000000000, 'a9993e364706816aba3e25717850c26c9cd0d89d', 1390000012, 1, 1026, 100, 2, 'admin@StorageHost', NULL, X'00', 'name=O''Brien 100%&x=1', X''),
  (4, 3, 0, 3, 0, 1400000003, 1, 10, 'da39a3ee5e6b4b0d3255bfef95601890afd80709', 1390000003, 0, 1026, 100, 3, 'ß client', NULL, NULL, NULL, NULL),
  (5, 3, 2, 4, 4, 1400000004, NULL, NULL, NULL, 1390000004, 1, NULL, NULL, NULL, NULL, NULL, NULL, '', NULL),
  (6, 3, 1, 13, 5, 1400000013, 1, 10, 'da39a3ee5e6b4b0d3255bfef95601890afd80709', 1390000013, 0, 1026, 100, 3, 'admin@StorageHost', NULL, NULL, X'66696E6465723D31', NULL),
  (7, 4, 0, 5, 0, 1400000005, 4, 7, '', 1390000005, 1, 4000000000, 4000000001, 9000000000, 'localhost', NULL, NULL, NULL, NULL),
  (8, 6, 2, 6, 0, 1400000007, 0, 0, '', 1390000007, 0, 0, 0, 1, 'admin@StorageHost', NULL, NULL, NULL, NULL),
  (9, 7, 0, 20, 0, 1400000020, NULL, NULL, NULL, 1390000020, NULL, 0, 0, 4, '', NULL, NULL, X'', NULL),
  (10, 8, 3, 21, 0, 1400000021, 5, 1, 'x', 1390000021, 0, 0, 0, 4, 'Admin@StorageHost', NULL, NULL, 'uuid', NULL),
  (11, 9, 2, 11, 0, 1400000011, 0, 0, '', 1390000011, 0, 0, 0, 1, 'admin@StorageHost', NULL, NULL, '', NULL),
  (12, 10, 2, 14, 0, 1400000014, 0, 0, '', 1390000014, 1, 0, 0, 5, 'c', NULL, NULL, NULL, NULL),
  (13, 11, 0, 15, 0, 1400000015, 6, 2, 'y', 1390000015, 0, 0, 0, 5, 'c', NULL, NULL, 'k=v', NULL),
  (14, 12, 2, 16, 0, 1400000016, 0, 0, '', 1390000016, 0, 0, 0, 1, 'c', NULL, NULL, NULL, NULL),
  (15, 99, 0, 17, 0, 1400000017, 6, 2, 'y', 1390000017, 0, 0, 0, 5, 'c', NULL, NULL, NULL, NULL);
INSERT INTO tree_table (node_id, parent_id, distance) VALUES
  (2, 1, 1), (3, 1, 1), (4, 1, 1), (5, 1, 1),
  (7, 6, 1), (8, 6, 1),
  (10, 9, 1), (11, 10, 1), (11, 9, 2),
  (12, 77, 1), (99, 1, 1);
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
