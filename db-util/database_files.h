// The files that make up one SQLite database on disk.
//
// A database is its own file and up to three companions: the write-ahead log and its index, and the rollback
// journal. A companion left beside another database's file is replayed into it, so whoever copies, moves or
// removes a database does it with all of them.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace db_util {

inline constexpr std::array<std::string_view, 3> kCompanionSuffixes = {"-wal", "-shm", "-journal"};

// The database path, then its companions in the order of their suffixes.
[[nodiscard]] std::array<std::string, kCompanionSuffixes.size() + 1> DatabaseFiles(const std::string& path);

// Whether the database has any of them. One that the disk does not tell of may be there.
[[nodiscard]] bool HasCompanions(const std::string& path);

// Removes the companions of `path`; missing ones are fine. Returns 0, or -1 with errno of the first that
// stays. Only for a database that nobody has open and whose companions hold nothing that is still wanted.
[[nodiscard]] int RemoveCompanions(const std::string& path);

}  // namespace db_util
