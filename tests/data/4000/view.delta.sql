CREATE TABLE remove_file_table (uuid VARCHAR, file_id INTEGER);
CREATE INDEX tree_table_node_parent_index ON tree_table (node_id, parent_id);
DROP TRIGGER version_delete_trigger;
CREATE TRIGGER version_delete_trigger AFTER DELETE ON version_table FOR EACH ROW BEGIN
  INSERT INTO remove_file_table (uuid, file_id) SELECT OLD.file_uuid, OLD.file_id WHERE OLD.file_uuid != '' AND OLD.file_id != 0;
  INSERT INTO remove_file_table (uuid, file_id) SELECT get_mac_attr_uuid(OLD.mac_attr), get_mac_attr_file_id(OLD.mac_attr) WHERE get_mac_attr_uuid(OLD.mac_attr) != '' AND get_mac_attr_file_id(OLD.mac_attr) != 0;
END;
