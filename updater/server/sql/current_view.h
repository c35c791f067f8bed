// The tables of nodes and versions as every view database has them at the current version, and their indexes.
// The database is attached as view_db.
#pragma once

#include <string>

namespace updater::server::sql {

[[nodiscard]] std::string CreateCurrentTables();
[[nodiscard]] std::string CreateCurrentIndexes();

// What stands in the rows for the `attribute` of older layouts.
inline constexpr const char* kCurrentAttributes = "(attribute & 1), ((attribute & 2) == 2)";

}  // namespace updater::server::sql
