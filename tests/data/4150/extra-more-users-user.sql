-- A local user and a share user, with a session, a task and a view each; their folders are on the volume of homes.
UPDATE user_table SET watch_path = '/srv/homes/O''Brien/StratoFolder' WHERE id = 3;
INSERT INTO user_table (id, attribute, view_id, name, uid, gid, user_type, watch_path) VALUES
  (20, 0, 20, 'alice', 1027, 100, 0, '/srv/homes/alice/StratoFolder'),
  (21, 0, 21, '@music', 0, 0, 1, '/srv/shares/music');
INSERT INTO session_table (uid, ctime, sess_id) VALUES (20, 1400000002, 'alice'), (21, 1400000003, 'music');
INSERT INTO backup_task_table (session, view_id) VALUES ('sessión 2', 5), ('alice', 20), ('music', 21);
INSERT INTO rotate_setting_table VALUES (20, 4, 'fifo'), (21, 4, 'fifo');
