@attach data user client
BEGIN TRANSACTION;
ALTER TABLE data_db.version_table ADD COLUMN mode INTEGER;
ALTER TABLE data_db.version_table ADD COLUMN acl_attribute TEXT DEFAULT NULL;
ALTER TABLE data_db.version_table ADD COLUMN acl_hash TEXT DEFAULT NULL;
ALTER TABLE data_db.version_table ADD COLUMN share_priv_disabled INTEGER DEFAULT 0;
ALTER TABLE data_db.version_table ADD COLUMN share_priv_deny_list TEXT DEFAULT '';
ALTER TABLE data_db.version_table ADD COLUMN share_priv_ro_list TEXT DEFAULT '';
ALTER TABLE data_db.version_table ADD COLUMN share_priv_rw_list TEXT DEFAULT '';
ALTER TABLE data_db.version_table ADD COLUMN share_priv_hash TEXT DEFAULT '';
UPDATE data_db.version_table SET mode = 1877 WHERE NOT (attribute & 1);
UPDATE data_db.version_table SET mode = 1604 WHERE attribute = 0 AND exec_bit = 0;
ALTER TABLE client_db.node_table ADD COLUMN uid  INTEGER DEFAULT 0;
ALTER TABLE client_db.node_table ADD COLUMN gid  INTEGER DEFAULT 0;
ALTER TABLE client_db.node_table ADD COLUMN mode INTEGER DEFAULT 0;
ALTER TABLE client_db.node_table ADD COLUMN acl_hash TEXT DEFAULT '';
ALTER TABLE client_db.node_table ADD COLUMN share_priv_hash TEXT DEFAULT '';
END TRANSACTION;
@version master data user client
@detach data user client
