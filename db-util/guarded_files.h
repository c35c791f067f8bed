// How SQLite reaches files in folders of others.
//
// This program runs as root on databases that belong to the package's service, and SQLite trusts what lies
// beside a database: a journal may name one more file, which is deleted when the journal was rolled back, and
// whatever has the name of a companion is written to and given to the owner of the database.
#pragma once

namespace db_util {

// The name of SQLite's own file system layer with two limits. It deletes nothing but the companions of
// databases that were opened through it, and what is named like a super-journal. Companions that are not
// regular files, or have other names as well, are not opened. Both are refused as a failure, after a line in
// the system log. Made with the first call.
[[nodiscard]] const char* GuardedFiles();

}  // namespace db_util
