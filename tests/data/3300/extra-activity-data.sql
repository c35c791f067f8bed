UPDATE node_table SET node_delta_file_id = 7 WHERE node_id = 2;
