// The tables of nodes and versions of a view database as 4100 to 4150 leaves them, and their indexes. They
// stay when the current version is raised; keep it so. The database is attached as view_db.
#pragma once

#include <string>

namespace updater::server::sql {

[[nodiscard]] std::string CreateRebuiltTables();
[[nodiscard]] std::string CreateRebuiltIndexes();

// What stands in the rows for the `attribute` of older layouts.
inline constexpr const char* kRebuiltAttributes = "(attribute & 1), ((attribute & 2) == 2)";

}  // namespace updater::server::sql
