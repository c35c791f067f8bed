ALTER TABLE profile_table ADD COLUMN attribute INTEGER DEFAULT 0;
CREATE TABLE profile_apply_view_table (
  profile_id INTEGER,
  view_id INTEGER,
  PRIMARY KEY (profile_id, view_id) ON CONFLICT IGNORE);
CREATE INDEX profile_apply_view_id_idx ON profile_apply_view_table (profile_id);
CREATE INDEX profile_apply_view_vid_idx ON profile_apply_view_table (view_id);

INSERT INTO profile_table (id, name, context, attribute) VALUES
  (1, 'internal for enc share', '{"filtered_max_name_length":143}', 7);
INSERT INTO profile_apply_view_table (profile_id, view_id) VALUES (1, 5), (1, 17);
