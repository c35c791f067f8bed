// Making a database file whole by itself.
#pragma once

#include <string>

#include "db-util/database.h"

namespace db_util {

// Brings everything that the companions hold into the database file itself (recovers a rollback journal,
// checkpoints the write-ahead log) and leaves the file without companions. The journal mode stays as it is. A
// file that does not exist only loses its companions: they belong to a database that is gone. Returns 0; -1
// when the database is damaged, locked or cannot be written, after logging "cannot fold database %s: %s
// (%d)\n"; the companions then stay.
//
// A rollback journal is rolled back with flushes. Of what the write-ahead log held nothing is flushed,
// because there may be thousands of databases, unless the path is a link: nobody knows of the file system
// behind it. For a database that has to survive a loss of power in between: flush its file system,
// WriteBackLog, flush again, and then this.
[[nodiscard]] int CheckpointDatabase(const std::string& path, Links links = Links::kTrusted);

// The same, but a write-ahead log stays beside the database, and still holds what it has written to it.
[[nodiscard]] int WriteBackLog(const std::string& path, Links links);

}  // namespace db_util
