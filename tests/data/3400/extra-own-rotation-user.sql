-- No entry for all user views; 77 has no view.
INSERT INTO customized_rotate_cnt_table (view_id, rotate_cnt) VALUES (1, 9), (17, 3), (77, 2), (4294967297, 0);
