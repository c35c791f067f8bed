UPDATE node_table SET node_delta_file_id = 7 WHERE node_id = 2;
INSERT INTO log_table (type, uid, username, view_id, share_name, share_type, time, s1, s2, s3, s4, s5, p1, p2, p3, p4, p5) VALUES
  (1, 4000000000, 'O''Brien 100%', 4294967297, '"%s"', 2, 1400000001, 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'ß'),
  (2, NULL, NULL, NULL, NULL, NULL, 1400000002, NULL, '', NULL, '', NULL, '', NULL, '', NULL, ''),
  (2, NULL, NULL, NULL, NULL, NULL, 1400000002, NULL, '', NULL, '', NULL, '', NULL, '', NULL, '');
