ALTER TABLE node_table ADD COLUMN v_committer_sess_id TEXT DEFAULT '';
ALTER TABLE version_table ADD COLUMN committer_sess_id TEXT DEFAULT '';
