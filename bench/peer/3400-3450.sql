@attach data log user client
BEGIN TRANSACTION;
CREATE TABLE IF NOT EXISTS user_db.temp_profile_table (id INTEGER PRIMARY KEY AUTOINCREMENT, name VARCHAR NOT NULL,
  context VARCHAR NOT NULL DEFAULT '{}', attribute INTEGER DEFAULT 0);
CREATE TABLE IF NOT EXISTS user_db.profile_apply_view_table (profile_id INTEGER, view_id INTEGER,
  PRIMARY KEY (profile_id, view_id) ON CONFLICT IGNORE);
INSERT INTO user_db.temp_profile_table (id, name, context) SELECT id, name, context FROM user_db.profile_table;
DROP TABLE IF EXISTS user_db.profile_table;
ALTER TABLE user_db.temp_profile_table RENAME TO profile_table;
CREATE INDEX IF NOT EXISTS user_db.profile_id_idx ON profile_table(id);
CREATE INDEX IF NOT EXISTS user_db.profile_apply_view_id_idx ON profile_apply_view_table(profile_id);
CREATE INDEX IF NOT EXISTS user_db.profile_apply_view_vid_idx ON profile_apply_view_table(view_id);
INSERT OR IGNORE INTO user_db.profile_table (name, context, attribute)
  VALUES ('internal for enc share', '{"filtered_max_name_length":143}', 7);
INSERT INTO user_db.profile_apply_view_table (profile_id, view_id)
  SELECT (SELECT max(id) FROM user_db.profile_table), view_id FROM user_db.user_table WHERE attribute & 8;
END TRANSACTION;
@include version-everywhere
@detach data log user client
