-- A count of 0 is one version, removed at once.
UPDATE config_table SET value = '1' WHERE key = 'rotate_cnt';
UPDATE config_table SET value = '1' WHERE key = 'remove_repo';
