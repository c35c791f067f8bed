#include "updater/server/settings_rows.h"

#include "db-util/query.h"
#include "logger/updater_log.h"

namespace updater::server {
namespace {

constexpr ViewId kSharedRow = 0;
constexpr int kShareUser = 1;

}  // namespace

int SettingsRows::Find(ViewId view, ViewId& row) {
  if (!user_types_ && !logger::Succeeded(ReadUserTypes(), "failed to get user type of view %llu\n", view)) {
    return -1;
  }
  const auto user_type = user_types_->find(view);
  row = user_type != user_types_->end() && user_type->second == kShareUser ? view : kSharedRow;
  return 0;
}

int SettingsRows::ReadUserTypes() {
  UserTypes types;
  const db_util::QueryResult result = db_util::ForEachRow(
      db_, "SELECT view_id, user_type FROM user_db.user_table;", [&types](sqlite3_stmt* row) {
        // Of several rows with one view id the first counts.
        types.emplace(static_cast<ViewId>(sqlite3_column_int64(row, 0)), sqlite3_column_int(row, 1));
        return true;
      });
  if (result.ok()) {
    user_types_ = std::move(types);
    return 0;
  }
  if (result.failed_at == db_util::QueryResult::Stage::kPrepare) {
    logger::SystemLog("sqlite3_prepare_v2: %s (%d)\n", result.message, result.code);
  } else {
    logger::SystemLog("sqlite3_step: %s\n", result.message);
  }
  return -1;
}

}  // namespace updater::server
