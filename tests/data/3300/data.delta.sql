-- The log is a database of its own now.
DROP TABLE log_table;
DELETE FROM config_table WHERE key IN ('use_log_del_cnt', 'log_del_cnt', 'use_log_del_span', 'log_del_span');
ANALYZE;
