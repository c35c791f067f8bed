// What the split of the data database needs beforehand. Both work on the attached data_db and user_db.
#pragma once

#include <sqlite3.h>

namespace updater::server {

// Refuses nodes that the split would lose, because they are stored under a view id that no view has. Writes
// nothing. Returns false after logging each user row that names such an id.
[[nodiscard]] bool RefuseLostNodes(sqlite3* db);

// Makes the indexes without which every view scans whole tables. They leave no trace: the data database is
// replaced at the end of the split. A table that is missing fails the copy. Results as ExecForSpeed().
[[nodiscard]] bool IndexViewLookups(sqlite3* db);

}  // namespace updater::server
