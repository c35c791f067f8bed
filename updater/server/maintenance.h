// Statements that need one of the databases for themselves.
#pragma once

#include <string>

namespace updater::server {

// Runs the statements on a connection of their own. Returns false after logging
// "failed to initialize database connection (%s)" or "StratoFolder Updater: sqlite3_exec: %s (%d)".
[[nodiscard]] bool RunMaintenance(const std::string& path, const std::string& statements);

}  // namespace updater::server
