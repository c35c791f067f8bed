INSERT INTO config_table (key, value) VALUES
  ('sync_id', '42'),
  ('sign_id', '0'),
  ('rotate_cnt', '8'),
  ('remove_repo', '0'),
  ('rotate_span', '7776000');
