// The tables of the user database and the rows that every user database has.
#pragma once

#include <sqlite3.h>

namespace user_mgr {

// Makes what the database lacks of tables, indexes and first rows, in one transaction; what is there stays.
// Returns 0, or -1 after logging "sqlite3_exec: %s (%d)\n", with the transaction still open.
[[nodiscard]] int CreateSchema(sqlite3* db);

// Adds the default profile unless a profile is marked as the default one. Returns 0, or -1 after logging.
[[nodiscard]] int EnsureDefaultProfile(sqlite3* db);

}  // namespace user_mgr
