@attach data log user client
@each view
ATTACH DATABASE '$view_db' AS view_db;
INSERT OR IGNORE INTO view_db.config_table (key, value)
  VALUES ('rotate_policy', (SELECT rotate_policy FROM user_db.rotate_setting_table WHERE view_id = $row));
DETACH DATABASE view_db;
@once
@include version-everywhere
@detach data log user client
