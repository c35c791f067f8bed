#include "updater/server/view_rotations.h"

#include <optional>
#include <unordered_map>

#include "db-util/query.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"
#include "updater/framework/views.h"

namespace updater::server {
namespace {

constexpr int kShareUser = 1;

// The user types are read once for all views, as user_table has no index to look one up by.
using UserTypes = std::unordered_map<ViewId, int>;

bool ReadUserTypes(sqlite3* db, UserTypes& types) {
  const db_util::Status status = db_util::ForEachRow(
      db, "SELECT view_id, user_type FROM user_db.user_table;", [&types](sqlite3_stmt* row) {
        // Of several rows with one view id the first counts.
        types.emplace(static_cast<ViewId>(sqlite3_column_int64(row, 0)), sqlite3_column_int(row, 1));
        return true;
      });
  // Without the head of an updater's line; keep it so.
  if (!status.ok()) logger::SystemLog("%s\n", DescribeUserQuery(status));
  return status.ok();
}

ViewId SettingsRow(const UserTypes& types, ViewId view) {
  const auto type = types.find(view);
  return type != types.end() && type->second == kShareUser ? view : kSharedRow;
}

}  // namespace

bool UpdateViewRotations(sqlite3* db, const package::PackagePaths& paths,
                         const logger::SqlFormat<long long>& statements) {
  std::optional<UserTypes> types;
  return ForEachView(db, [&](ViewId view) {
    if (!types &&
        !Check(ReadUserTypes(db, types.emplace()), "failed to get user type of view %llu\n", view)) {
      return false;
    }
    std::string script;
    const bool updated =
        db_util::FormatSql<long long>(script, statements, StoredId(SettingsRow(*types, view))) &&
        ExecOnView(db, paths, view, script) == 0;
    return Check(Check(updated, "Failed to update rotate_cnt for view %llu\n", view),
                 "Failed to update rotate count for view %llu\n", view);
  });
}

}  // namespace updater::server
