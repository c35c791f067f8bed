// Reading databases without changing anything, on the disk or for others who use them.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "db-util/database.h"

namespace db_util {

// Opens `path` for reading, as it would be after a hot journal was rolled back and a write-ahead log taken
// in; the files stay as they are, and none is made or opened for writing. Others may have the database open;
// one who wants to write waits as for every reader. The connection is hardened.
//
// The first statement finds out what is wrong with it: SQLITE_NOTADB, SQLITE_CORRUPT, SQLITE_BUSY (somebody
// is about to write), SQLITE_FULL (a hot journal of more than 256 MiB).
Status OpenToLook(const std::string& path, Database& out);

// The process that has locked the database, or has its write-ahead log open; 0 where the kernel does not tell
// its number. Nothing: nobody, or the file cannot be read. Not to be called while this process has the
// database open, which would give up its locks.
[[nodiscard]] std::optional<pid_t> FindUser(const std::string& path);

}  // namespace db_util
