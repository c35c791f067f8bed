@version master data user client log
@each view
ATTACH DATABASE '$view_db' AS view_db;
UPDATE view_db.config_table SET value = $to WHERE key = 'version';
INSERT OR REPLACE INTO view_db.config_table (key, value) VALUES ('branch', 'master');
DETACH DATABASE view_db;
@each volume
ATTACH DATABASE '$file_db' AS file_db;
UPDATE file_db.config_table SET value = $to WHERE key = 'version';
INSERT OR REPLACE INTO file_db.config_table (key, value) VALUES ('branch', 'master');
DETACH DATABASE file_db;
@once
