-- Assigned by the id of a user row; the one to 99 has no user.
INSERT INTO profile_table (id, name, context) VALUES (1, 'it''s 100%', '{"a":"%d"}'), (5, '', '{}');
INSERT INTO profile_apply_table (profile_id, user_id) VALUES (1, 3), (1, 99), (5, 8);
