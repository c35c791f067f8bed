UPDATE config_table SET value = '5' WHERE key = 'rotate_cnt';
