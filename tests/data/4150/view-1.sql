-- The counts of the removed nodes 3 and 5 are counted anew, that of node 4 stays wrong.
INSERT INTO node_table (node_id, parent_id, removed, file_type, max_id, sync_id, ver_cnt, ctime, mtime, name, path, data, v_base_id, v_file_uuid, v_file_id, v_file_size, v_file_hash, v_mtime, v_exec_bit, v_uid, v_gid, v_mode, v_sess_id, v_client_id, v_mac_attr, node_delta_file_id, sign_id) VALUES
  (1, 0, 0, 1, 13, 1, 1, 1400000001, 1390000001, '', '/', NULL, 0, NULL, 0, 0, '', 1390000001, 0, 0, 0, 1877, 1, 'localhost', NULL, 0, 0),
  (2, 1, 0, 0, 12, 12, 2, 1400000002, 1390000012, 'it''s 100% "done" %s.txt', '/it''s 100% "done" %s.txt', '', 2, @UUID@, 3, 5000000000, 'a9993e364706816aba3e25717850c26c9cd0d89d', 1390000012, 1, 1026, 100, 1877, 2, 'localhost', 'uuid=' || @UUID@ || '&name=O''Brien 100%&x=1', 0, 0),
  (3, 1, 1, 0, 13, 13, 3, 1400000003, 1390000013, 'Größe 文件 🗂.txt', '/Größe 文件 🗂.txt', '100% of ''it''', 5, @UUID@, 1, 10, 'da39a3ee5e6b4b0d3255bfef95601890afd80709', 1390000013, 0, 1026, 100, NULL, 3, 'localhost', 'uuid=' || @UUID@ || '&finder=1', 0, 0),
  (4, 1, 0, 0, 5, 5, 9, 1400000005, 1390000005, replace(hex(zeroblob(126)), '00', 'é') || '.md', '/' || replace(hex(zeroblob(126)), '00', 'é') || '.md', NULL, 0, @UUID@, 4, 7, '', 1390000005, 1, 4000000000, 4000000001, 1877, 9000000000, 'localhost', NULL, 0, 0);
INSERT INTO node_table (node_id, parent_id, removed, file_type, max_id, sync_id, ver_cnt, ctime, mtime, name, path, data, v_share_priv_disabled, v_share_priv_deny_list, v_share_priv_ro_list, v_share_priv_rw_list, v_share_priv_hash, node_delta_file_id, sign_id) VALUES
  (5, 1, 1, 1, 6, 6, 0, 1400000006, 1390000006, 'gone', '/gone', NULL, NULL, NULL, NULL, NULL, NULL, 0, 0);
INSERT INTO version_table (ver_id, node_id, removed, file_type, sync_id, base_id, ctime, file_uuid, file_id, file_size, file_hash, mtime, exec_bit, uid, gid, mode, sess_id, client_id, win_attr, linux_attr, mac_attr, plat_attr) VALUES
  (1, 1, 0, 1, 1, 0, 1400000001, NULL, 0, 0, '', 1390000001, 0, 0, 0, 1877, 1, 'localhost', NULL, NULL, NULL, NULL),
  (2, 2, 0, 0, 2, 0, 1400000002, NULL, 0, 0, NULL, 1390000002, 0, 1026, 100, 1604, 2, 'it''s a 100% "client"', X'0001FF', NULL, '', NULL),
  (3, 2, 0, 0, 12, 2, 1400000012, @UUID@, 3, 5000000000, 'a9993e364706816aba3e25717850c26c9cd0d89d', 1390000012, 1, 1026, 100, 1877, 2, 'localhost', NULL, X'00', 'uuid=' || @UUID@ || '&name=O''Brien 100%&x=1', X''),
  (4, 3, 0, 0, 3, 0, 1400000003, @UUID@, 1, 10, 'da39a3ee5e6b4b0d3255bfef95601890afd80709', 1390000003, 0, 1026, 100, 1604, 3, 'ß client', NULL, NULL, NULL, NULL),
  (5, 3, 0, 1, 4, 4, 1400000004, NULL, NULL, NULL, NULL, 1390000004, 1, NULL, NULL, 1877, NULL, NULL, NULL, NULL, '', NULL),
  (6, 3, 1, 0, 13, 5, 1400000013, @UUID@, 1, 10, 'da39a3ee5e6b4b0d3255bfef95601890afd80709', 1390000013, 0, 1026, 100, NULL, 3, 'localhost', NULL, NULL, 'uuid=' || @UUID@ || '&finder=1', NULL),
  (7, 4, 0, 0, 5, 0, 1400000005, @UUID@, 4, 7, '', 1390000005, 1, 4000000000, 4000000001, 1877, 9000000000, 'localhost', NULL, NULL, NULL, NULL);
INSERT INTO tree_table (node_id, parent_id, distance) VALUES (2, 1, 1), (3, 1, 1), (4, 1, 1), (5, 1, 1);
