// The activity log: first a table of the data database, then one of the log database.
#pragma once

#include <string>

namespace updater::server::sql {

// CREATE TABLE IF NOT EXISTS for log_table of the schema. Rows are moved between two of them with SELECT *,
// so the columns and their order are the same everywhere.
[[nodiscard]] std::string CreateLogTable(const char* schema);

// CREATE INDEX IF NOT EXISTS for its eleven indexes.
[[nodiscard]] std::string CreateLogIndexes(const char* schema);

}  // namespace updater::server::sql
