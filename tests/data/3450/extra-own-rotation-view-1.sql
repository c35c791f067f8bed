UPDATE config_table SET value = '9' WHERE key = 'rotate_cnt';
