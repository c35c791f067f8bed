-- The built-in profile comes after the others.
DELETE FROM profile_table;
DELETE FROM profile_apply_view_table;
INSERT INTO profile_table (id, name, context, attribute) VALUES
  (1, 'it''s 100%', '{"a":"%d"}', 0),
  (5, '', '{}', 0),
  (6, 'internal for enc share', '{"filtered_max_name_length":143}', 7);
-- Assigned by uid.
INSERT INTO profile_apply_table (profile_id, user_id) VALUES (1, 1026), (1, NULL), (5, 0);
INSERT INTO profile_apply_view_table (profile_id, view_id) VALUES (6, 5), (6, 17);
