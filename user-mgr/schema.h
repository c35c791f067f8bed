// The tables of the user database and the rows that every user database has.
#pragma once

#include <sqlite3.h>

namespace user_mgr {

// Makes what the database lacks of tables, indexes and first rows, in one transaction; what is there stays.
// A failure is logged as "sqlite3_exec: %s (%d)\n" and leaves the transaction open.
[[nodiscard]] bool CreateSchema(sqlite3* db);

// Adds the default profile unless a profile is marked as the default one. A failure is logged.
[[nodiscard]] bool EnsureDefaultProfile(sqlite3* db);

}  // namespace user_mgr
