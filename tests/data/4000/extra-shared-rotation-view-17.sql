UPDATE config_table SET value = '0' WHERE key = 'rotate_cnt';
