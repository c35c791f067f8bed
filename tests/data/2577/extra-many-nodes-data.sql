WITH RECURSIVE n(i) AS (SELECT 1000 UNION ALL SELECT i + 1 FROM n LIMIT 20000)
INSERT INTO node_table (node_id, parent_id, view_id, attribute, sync_id, ver_cnt, ctime, mtime, name, path)
  SELECT i, 1, 1, 0, i, 1, 1400000000, 1390000000, 'node ' || i, '/node ' || i FROM n;
INSERT INTO version_table (node_id, attribute, sync_id, ctime, exec_bit, file_id, mac_attr)
  SELECT node_id, 0, sync_id, 1400000000, 0, node_id, 'a=b' FROM node_table WHERE node_id >= 1000;
INSERT INTO tree_table SELECT node_id, 1, 1 FROM node_table WHERE node_id >= 1000;
