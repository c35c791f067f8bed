INSERT INTO node_table (node_id, parent_id, removed, file_type, max_id, sync_id, ver_cnt, ctime, mtime, name, path, data, v_base_id, v_file_uuid, v_file_id, v_file_size, v_file_hash, v_mtime, v_exec_bit, v_uid, v_gid, v_mode, v_sess_id, v_client_id, v_mac_attr, node_delta_file_id, sign_id) VALUES
  (9, 0, 0, 1, 11, 11, 1, 1400000011, 1390000011, '', '/', NULL, 0, NULL, 0, 0, '', 1390000011, 0, 0, 0, 1877, 1, 'localhost', '', 0, 0),
  (10, 9, 0, 1, 14, 14, 6, 1400000014, 1390000014, 'Docs', '/Docs', NULL, 0, NULL, 0, 0, '', 1390000014, 1, 0, 0, 1877, 5, 'c', NULL, 0, 0),
  (11, 10, 0, 0, 15, 15, 1, 1400000015, 1390000015, 'a\b.TXT', '/Docs/a\b.TXT', NULL, 0, @UUID@, 6, 2, 'y', 1390000015, 0, 0, 0, 1604, 5, 'c', 'uuid=' || @UUID@ || '&k=v', 0, 0);
INSERT INTO version_table (ver_id, node_id, removed, file_type, sync_id, base_id, ctime, file_uuid, file_id, file_size, file_hash, mtime, exec_bit, uid, gid, mode, sess_id, client_id, win_attr, linux_attr, mac_attr, plat_attr) VALUES
  (11, 9, 0, 1, 11, 0, 1400000011, NULL, 0, 0, '', 1390000011, 0, 0, 0, 1877, 1, 'localhost', NULL, NULL, '', NULL),
  (12, 10, 0, 1, 14, 0, 1400000014, NULL, 0, 0, '', 1390000014, 1, 0, 0, 1877, 5, 'c', NULL, NULL, NULL, NULL),
  (13, 11, 0, 0, 15, 0, 1400000015, @UUID@, 6, 2, 'y', 1390000015, 0, 0, 0, 1604, 5, 'c', NULL, NULL, 'uuid=' || @UUID@ || '&k=v', NULL);
INSERT INTO tree_table (node_id, parent_id, distance) VALUES (10, 9, 1), (11, 10, 1), (11, 9, 2);
