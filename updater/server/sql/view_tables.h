// node_table and version_table of a view database. They exist in two layouts that differ in two places: how
// the state of a row is stored, and whether the session that committed it is.
#pragma once

#include <string>

namespace updater::server::sql {

// The columns that differ, as pieces of a column list.
struct ViewLayout {
  const char* state;              // of both tables
  const char* node_committer;     // of node_table; empty for none
  const char* version_committer;  // of version_table; empty for none
};

inline constexpr ViewLayout kAttributeLayout = {
    .state = "attribute INTEGER, ", .node_committer = "", .version_committer = ""};

inline constexpr ViewLayout kFileTypeLayout = {
    .state = "removed INTEGER, file_type INTEGER, ",
    .node_committer = "v_committer_sess_id TEXT DEFAULT '', ",
    .version_committer = "committer_sess_id TEXT DEFAULT '', ",
};

// CREATE TABLE statements for the two tables, node_table first.
[[nodiscard]] std::string CreateViewTables(const char* schema, const ViewLayout& layout);

}  // namespace updater::server::sql
