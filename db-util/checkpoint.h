// Making a database file whole by itself.
#pragma once

#include <string>

#include "db-util/database.h"

namespace db_util {

// Brings everything that the companions hold into the database file itself (recovers a rollback journal,
// checkpoints the write-ahead log) and leaves the file without companions. The journal mode stays as it is. A
// file that does not exist only loses its companions: they belong to a database that is gone. Returns 0; -1
// when the database is damaged, locked or cannot be written, after logging "cannot fold database %s: %s
// (%d)\n"; the companions then stay. With kTrusted it is a working copy, for which nothing is flushed.
[[nodiscard]] int CheckpointDatabase(const std::string& path, Links links = Links::kTrusted);

}  // namespace db_util
