UPDATE config_table SET value = '1' WHERE key = 'rotate_cnt';
UPDATE config_table SET value = '1' WHERE key = 'remove_repo';
