// Whether a database is one of the layout that this program knows.
#pragma once

#include <sqlite3.h>

#include <string>

namespace db {

// True when every one of the tables is there and the stored version is the package's current one. Otherwise
// the reason is logged.
[[nodiscard]] bool HasLayout(sqlite3* db, const std::string& path, const std::string& table_names,
                             int table_count);

}  // namespace db
