ALTER TABLE version_table ADD COLUMN mode INTEGER;
ALTER TABLE version_table ADD COLUMN acl_attribute TEXT DEFAULT NULL;
ALTER TABLE version_table ADD COLUMN acl_hash TEXT DEFAULT NULL;
ALTER TABLE version_table ADD COLUMN share_priv_disabled INTEGER DEFAULT 0;
ALTER TABLE version_table ADD COLUMN share_priv_deny_list TEXT DEFAULT '';
ALTER TABLE version_table ADD COLUMN share_priv_ro_list TEXT DEFAULT '';
ALTER TABLE version_table ADD COLUMN share_priv_rw_list TEXT DEFAULT '';
ALTER TABLE version_table ADD COLUMN share_priv_hash TEXT DEFAULT '';

-- 2, 4, 13 and 15 are plain files. The removed 6 and 10 have no mode.
UPDATE version_table SET mode = 1604 WHERE ver_id IN (2, 4, 13, 15);
UPDATE version_table SET mode = 1877 WHERE ver_id IN (1, 3, 5, 7, 8, 9, 11, 12, 14);
