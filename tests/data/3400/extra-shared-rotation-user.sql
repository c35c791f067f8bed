-- The entry 0 overrides that of view 1, not that of the share user's view 17.
INSERT INTO customized_rotate_cnt_table (view_id, rotate_cnt) VALUES (0, 5), (1, 9), (17, 0);
