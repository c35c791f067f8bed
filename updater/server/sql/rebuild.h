// Scripts that drop a table and rename another one into its place.
#pragma once

#include <sqlite3.h>

#include <string>

namespace updater::server::sql {

// Executes the script with renames that look at nothing but the renamed table: by default SQLite refuses a
// rename as long as a view or a trigger of another table still names the dropped one. Returns false after
// logging what ExecScriptAs() does.
[[nodiscard]] bool ExecRebuild(sqlite3* db, const std::string& script, const std::string& logged);

}  // namespace updater::server::sql
