// The version that a database says it has.
#pragma once

#include <sqlite3.h>

#include <optional>
#include <string>

#include "updater/framework/version.h"

namespace updater {

// The number that a stored text begins with, up to the first character that is no digit; nothing when it is 0
// or has more than 32 bits.
[[nodiscard]] std::optional<int> ParseVersionNumber(const std::string& text);

// Reads branch and number of the database at `path` without changing it. Returns 0, or -1 with `out`
// untouched after logging "cannot read the version of database %s: %s\n": the file cannot be opened, has no
// config_table, or no version that is a number of 32 bits other than 0.
[[nodiscard]] int ReadStoredVersion(const std::string& path, Version& out);

// The same from an open connection. Returns the reason of a failure; empty when there is none.
[[nodiscard]] std::string ReadVersionFrom(sqlite3* db, Version& out);

// The line that it logs.
void LogUnreadableVersion(const std::string& path, const std::string& reason);

}  // namespace updater
