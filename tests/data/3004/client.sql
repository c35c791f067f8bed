CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE TABLE node_table (
  node_id INTEGER PRIMARY KEY AUTOINCREMENT,
  parent_id INTEGER,
  view_id INTEGER,
  sync_id INTEGER,
  mtime DATETIME,
  file_hash VARCHAR(40),
  name VARCHAR NOT NULL COLLATE NOCASE,
  path VARCHAR NOT NULL COLLATE NOCASE,
  uid INTEGER DEFAULT 0,
  gid INTEGER DEFAULT 0,
  mode INTEGER DEFAULT 0,
  acl_hash TEXT DEFAULT '',
  share_priv_hash TEXT DEFAULT '');
CREATE TABLE progress_table (view_id INTEGER, sync_id INTEGER);
CREATE INDEX node_table_path_index ON node_table (path);

INSERT INTO config_table (key, value) VALUES ('sync_id', '41');
INSERT INTO node_table (node_id, parent_id, view_id, sync_id, mtime, file_hash, name, path) VALUES
  (1, 0, 1, 1, 1390000001, NULL, '', '/'),
  (2, 1, 1, 12, 1390000012, 'a9993e364706816aba3e25717850c26c9cd0d89d', 'it''s 100% "done" %s.txt', '/it''s 100% "done" %s.txt'),
  (9, 0, 17, 11, 1390000011, '', '', '/');
-- A view with a sync id, one with none, one that has no user; the other views have no row.
INSERT INTO progress_table (view_id, sync_id) VALUES (1, 40), (17, NULL), (77, 5);
