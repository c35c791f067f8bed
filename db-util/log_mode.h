// Working without a write-ahead log on databases that are to have one afterwards.
//
// A file says twice whether it has a log: in the "read version" of its header, from which SQLite learns it,
// and in the "write version", at which SQLite only looks whether it is known. While a log is suspended the
// two differ, so the file itself remembers what it is to be, wherever it is moved meanwhile.
//
// What takes a path is for files that nobody has open, also not in this process. No strange link is followed:
// see GuardedFiles().
#pragma once

#include <sqlite3.h>

#include <string>

#include "base/errno.h"

namespace db_util {

enum class LogMode { kNone, kSuspended, kInUse };

// What the file of an open database says; kNone of one that has no header yet.
[[nodiscard]] LogMode LogModeOf(sqlite3* db, const char* schema);

// Moves what is in the log of the database into it, and lets it be opened without a log from now on. Returns
// the mode that it has then: kInUse where that did not work, and nothing has changed.
[[nodiscard]] LogMode SuspendLog(const std::string& path);

// Gives a database without a log one that is suspended; EINVAL for a file without content.
[[nodiscard]] base::Errno AddSuspendedLog(const std::string& path);
// The same for the bytes of a database.
void AddSuspendedLogTo(std::string& image);

// Lets the database be opened with its log again. Success where none was suspended.
[[nodiscard]] base::Errno ResumeLog(const std::string& path);

}  // namespace db_util
