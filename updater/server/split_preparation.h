// What the split of the data database looks at beforehand, in the attached data_db and user_db.
#pragma once

#include <sqlite3.h>

namespace updater::server {

// Refuses nodes that the split would lose, because they are stored under a view id that no view has. Writes
// nothing. Returns false after logging each user row that names such an id.
[[nodiscard]] bool RefuseLostNodes(sqlite3* db);

}  // namespace updater::server
