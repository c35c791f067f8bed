@attach data user client
BEGIN TRANSACTION;
UPDATE data_db.version_table SET client_id = 'localhost' WHERE client_id = 'admin@StorageHost';
END TRANSACTION;
@version hos-4.3 data user client
@detach data user client
