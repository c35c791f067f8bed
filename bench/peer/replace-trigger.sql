DROP TRIGGER view_db.version_delete_trigger;
CREATE TRIGGER IF NOT EXISTS view_db.version_delete_trigger AFTER DELETE ON version_table FOR EACH ROW BEGIN
  INSERT INTO remove_file_table (uuid, file_id) SELECT OLD.file_uuid, OLD.file_id
    WHERE OLD.file_uuid != '' AND OLD.file_id != 0;
  INSERT INTO remove_file_table (uuid, file_id)
    SELECT get_mac_attr_uuid(OLD.mac_attr), get_mac_attr_file_id(OLD.mac_attr)
    WHERE get_mac_attr_uuid(OLD.mac_attr) != '' AND get_mac_attr_file_id(OLD.mac_attr) != 0;
  END;
