// The rotation settings of views: how many versions each keeps, and which.
#pragma once

#include <sqlite3.h>

#include "base/view_id.h"
#include "logger/format.h"
#include "package/layout.h"

namespace updater::server {

// The number under which all users' views together have their settings.
inline constexpr base::ViewId kSharedRow = 0;

// Runs the statements on every view of the attached user_db, with the view's database as view_db and the
// number of its row in rotate_setting_table put in: a share's view has its own, all users' views have row 0
// together.
//
// Returns false after logging what ForEachView() does, "failed to get user type of view %llu\n", or "Failed
// to update rotate_cnt for view %llu\n" and "Failed to update rotate count for view %llu\n".
[[nodiscard]] bool UpdateViewRotations(sqlite3* db, const package::PackagePaths& paths,
                                       const logger::SqlFormat<long long>& statements);

}  // namespace updater::server
