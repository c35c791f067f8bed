UPDATE node_table SET uid = 1026, gid = 100, mode = 1604, acl_hash = 'acl hash', share_priv_hash = 'share hash' WHERE node_id = 2;
