UPDATE rotate_setting_table SET rotate_cnt = 5 WHERE view_id = 0;
UPDATE rotate_setting_table SET rotate_cnt = 0 WHERE view_id = 17;
