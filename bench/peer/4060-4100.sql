@attach data log user client
@each view
ATTACH DATABASE '$view_db' AS view_db;
ALTER TABLE view_db.node_table ADD COLUMN v_committer_sess_id TEXT DEFAULT '';
ALTER TABLE view_db.version_table ADD COLUMN committer_sess_id TEXT DEFAULT '';
DETACH DATABASE view_db;
@once
@detach data log user client
.open '$log'
PRAGMA auto_vacuum = 1;
VACUUM;
.open '$scratch'
@attach data log user client
@include version-everywhere
@detach data log user client
