// The views and volumes of a package: which there are, and work on the database of each.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <string>
#include <vector>

#include "base/view_id.h"
#include "db-util/status.h"
#include "package/layout.h"

namespace updater {

using base::ViewId;
using package::PackagePaths;

// The view id as the tables store it, signed. Written without a sign, an id above 2^63-1, which is stored
// below 0, would be a floating-point number to SQLite and find nothing.
[[nodiscard]] inline long long StoredId(ViewId view) { return static_cast<long long>(view); }

// "SELECT view_id FROM user_table;" on the connection, in result order. Returns false after logging the
// failure of the query; the caller adds its own line.
[[nodiscard]] bool ReadViewIds(sqlite3* db, std::vector<ViewId>& views);

// The text of a query of users that failed; only that of a failed preparation has the code. Keep it so.
[[nodiscard]] std::string DescribeUserQuery(const db_util::Status& failure);

// Calls `work` for every view of the user table until it fails. Returns false after logging
// "Failed to get all views\n", or what `work` logged.
[[nodiscard]] bool ForEachView(sqlite3* db, const std::function<bool(ViewId)>& work);

// Calls `work` for the database in every folder of a view, then of a volume, until it fails. What is not
// there has none. Returns false after logging "cannot list %s: %s (%d)\n", or what `work` logged.
[[nodiscard]] bool ForEachFolderDatabase(const PackagePaths& paths,
                                         const std::function<bool(const std::string&)>& work);

// Runs `body` with the database of the view attached as view_db, as one script. Results as ExecAttached().
[[nodiscard]] int ExecOnView(sqlite3* db, const PackagePaths& paths, ViewId view, const std::string& body);

}  // namespace updater
