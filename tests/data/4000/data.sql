PRAGMA journal_mode = WAL;
CREATE TABLE volume_table (uuid VARCHAR PRIMARY KEY, repo_path VARCHAR DEFAULT '');
CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
CREATE INDEX volume_table_uuid_index ON volume_table (uuid);
CREATE INDEX config_table_key_index ON config_table (key);

INSERT INTO volume_table (uuid, repo_path) VALUES (@UUID@, @SYNC@);
INSERT INTO config_table (key, value) VALUES
  ('row1', '1'),
  ('serial', 'it''s "100%" S/N'),
  ('rotate_span', '7776000');
