// Statements that need one of the databases for themselves.
#pragma once

#include <string>

namespace updater::server {

// Runs the statements on a connection of their own. Returns false after logging
// "failed to initialize database connection (%s)" or "StratoFolder Updater: sqlite3_exec: %s (%d)".
[[nodiscard]] bool RunMaintenance(const std::string& path, const std::string& statements);

// Gives a database that nobody has open a suspended write-ahead log. Returns false after logging
// "cannot write %s: %s (%d)\n".
[[nodiscard]] bool AddLog(const std::string& path);

}  // namespace updater::server
