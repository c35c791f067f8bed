// How SQLite reads databases that nothing may be written to.
//
// Reading a database is not harmless by itself: whoever opens one with a hot journal rolls it back in the
// file, and one with a write-ahead log gets an index of the log beside it, and is checkpointed when it is
// closed. Through these files SQLite believes that it does all that, and reads what it would have read; what
// it writes is kept in memory and forgotten with the connection.
#pragma once

namespace db_util {

// The name of that file system layer of SQLite. Made with the first call.
// - Files are opened for reading only, and nothing is made or deleted. There are no temporary files.
// - A lock for reading is taken like every reader's, so a rollback journal is never written while one looks.
//   Stronger locks are only pretended.
// - The index of a write-ahead log is kept on the heap, and the locks in it are not seen. So a database with
//   a log that another process has open must not be read through these files.
// - What would be written must fit into 256 MiB: more, as a large hot journal needs, fails.
[[nodiscard]] const char* LookingFiles();

// The same for a database with a log that others have open: for a connection that is opened for reading, by a
// name with "readonly_shm=1". Their index of the log is read, and their locks are kept.
[[nodiscard]] const char* SharedLookingFiles();

}  // namespace db_util
