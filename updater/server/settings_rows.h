// Where the rotation settings of a view are.
#pragma once

#include <sqlite3.h>

#include <optional>
#include <unordered_map>

#include "updater/framework/view_databases.h"

namespace updater::server {

// The rows of rotate_setting_table: a share's view has its own, all users' views have row 0 together. The
// user types are read once for all views, as user_table has no index to look one up by. The connection is
// borrowed.
class SettingsRows {
 public:
  explicit SettingsRows(sqlite3* db) : db_(db) {}

  // Puts the row of the view into `row`. Returns 0, or -1 after logging
  // "failed to get user type of view %llu\n".
  [[nodiscard]] int Find(ViewId view, ViewId& row);

 private:
  using UserTypes = std::unordered_map<ViewId, int>;

  [[nodiscard]] int ReadUserTypes();

  sqlite3* db_;
  std::optional<UserTypes> user_types_;
};

}  // namespace updater::server
