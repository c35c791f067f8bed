-- The order of the rows is the order in which the updaters visit the views: 5, 4294967297, 1, 17.
CREATE TABLE user_table (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  attribute INTEGER,
  view_id INTEGER,
  name VARCHAR COLLATE NOCASE UNIQUE,
  uid INTEGER,
  gid INTEGER,
  user_type INTEGER NOT NULL,
  watch_path VARCHAR NOT NULL);
CREATE TABLE session_table (
  uid INTEGER REFERENCES user_table (id),
  attribute INTEGER DEFAULT 0,
  group_id INTEGER,
  client VARCHAR,
  ip VARCHAR,
  ctime DATETIME DEFAULT (strftime('%s','now')),
  sess_id VARCHAR UNIQUE ON CONFLICT ABORT);
CREATE TABLE config_table (key VARCHAR UNIQUE ON CONFLICT ABORT, value VARCHAR);
CREATE TABLE profile_table (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  name VARCHAR NOT NULL,
  context VARCHAR NOT NULL DEFAULT '{}');
CREATE TABLE profile_apply_table (
  profile_id INTEGER,
  user_id INTEGAR,
  PRIMARY KEY (profile_id, user_id) ON CONFLICT IGNORE);
CREATE INDEX profile_id_idx ON profile_table (id);
CREATE INDEX profile_apply_id_idx ON profile_apply_table (profile_id);
CREATE INDEX profile_apply_uid_idx ON profile_apply_table (user_id);

INSERT INTO user_table (id, attribute, view_id, name, uid, gid, user_type, watch_path) VALUES
  (1, 9, 5, 'DOM\bob 100%', 4000000000, 4000000001, 3, ''),
  (2, 3, 4294967297, 'größe.ldap', 2000001, 2000002, 2, '/volume1/homes/größe.ldap/StratoFolder'),
  (3, 0, 1, 'O''Brien', 1026, 100, 0, '/volume1/homes/O''Brien/StratoFolder'),
  (8, 8, 17, '@team "50%"', 0, 0, 1, '/volume1/team "50%"');
INSERT INTO session_table (uid, attribute, group_id, client, ip, ctime, sess_id) VALUES
  (3, 0, 1, 'O''Brien''s "laptop" 100%', '192.0.2.7', 1400000000, 'session 1'),
  (1, 1, NULL, NULL, '', 1400000001, 'sessión 2');
-- The counter of view numbers is behind on purpose.
INSERT INTO config_table (key, value) VALUES ('view_id', '4');
