UPDATE config_table SET value = '3' WHERE key = 'rotate_cnt';
