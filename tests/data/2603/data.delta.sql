-- The server's own changes have another name; versions 10 and the others keep theirs.
UPDATE version_table SET client_id = 'localhost' WHERE ver_id IN (1, 3, 6, 8, 11);
