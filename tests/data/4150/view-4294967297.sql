-- An empty BLOB is no empty text: its attribute of node 7 gets the uuid.
INSERT INTO node_table (node_id, parent_id, removed, file_type, max_id, sync_id, ver_cnt, ctime, mtime, name, path, data, v_base_id, v_file_uuid, v_file_id, v_file_size, v_file_hash, v_mtime, v_exec_bit, v_uid, v_gid, v_mode, v_sess_id, v_client_id, v_mac_attr, node_delta_file_id, sign_id) VALUES
  (7, 6, 0, 0, 20, 20, 1, 1400000020, 1390000020, '%d%n', '/%d%n', NULL, 0, NULL, NULL, NULL, NULL, 1390000020, NULL, 0, 0, 1877, 4, '', 'uuid=' || @UUID@ || '&', 0, 0),
  (8, 6, 1, 1, 21, 21, 1, 1400000021, 1390000021, 'a;b--', '/a;b--', NULL, 0, @UUID@, 5, 1, 'x', 1390000021, 0, 0, 0, NULL, 4, 'Admin@StorageHost', 'uuid=' || @UUID@ || '&uuid', 0, 0);
INSERT INTO node_table (node_id, parent_id, removed, file_type, max_id, sync_id, ver_cnt, ctime, mtime, name, path, data, v_share_priv_disabled, v_share_priv_deny_list, v_share_priv_ro_list, v_share_priv_rw_list, v_share_priv_hash, node_delta_file_id, sign_id) VALUES
  (6, 0, 0, 1, 21, 7, 1, 1400000007, 1390000007, '', '/', NULL, NULL, NULL, NULL, NULL, NULL, 0, 0);
INSERT INTO version_table (ver_id, node_id, removed, file_type, sync_id, base_id, ctime, file_uuid, file_id, file_size, file_hash, mtime, exec_bit, uid, gid, mode, sess_id, client_id, win_attr, linux_attr, mac_attr, plat_attr) VALUES
  (8, 6, 0, 1, 6, 0, 1400000007, NULL, 0, 0, '', 1390000007, 0, 0, 0, 1877, 1, 'localhost', NULL, NULL, NULL, NULL),
  (9, 7, 0, 0, 20, 0, 1400000020, NULL, NULL, NULL, NULL, 1390000020, NULL, 0, 0, 1877, 4, '', NULL, NULL, 'uuid=' || @UUID@ || '&', NULL),
  (10, 8, 1, 1, 21, 0, 1400000021, @UUID@, 5, 1, 'x', 1390000021, 0, 0, 0, NULL, 4, 'Admin@StorageHost', NULL, NULL, 'uuid=' || @UUID@ || '&uuid', NULL);
INSERT INTO tree_table (node_id, parent_id, distance) VALUES (7, 6, 1), (8, 6, 1);
