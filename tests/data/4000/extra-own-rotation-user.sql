-- The last user view in the order of user_table, view 1, decides row 0.
UPDATE rotate_setting_table SET rotate_cnt = 9 WHERE view_id = 0;
UPDATE rotate_setting_table SET rotate_cnt = 3 WHERE view_id = 17;
