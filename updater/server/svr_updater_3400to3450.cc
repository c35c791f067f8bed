// 3400 to 3450: moves the rotation settings of views from the user database into their view databases, and
// ties profiles to views.
#include <charconv>
#include <map>
#include <optional>

#include "db-util/query.h"
#include "file-op/file_op.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"
#include "updater/framework/views.h"
#include "updater/server/sql/rebuild.h"
#include "updater/server/updaters.h"
#include "updater/server/view_rotations.h"

namespace updater::server {
namespace {

constexpr const char* kRotationQuery =
    "SELECT view_id, rotate_cnt FROM user_db.customized_rotate_cnt_table; ";
constexpr const char* kUserViewsQuery = "SELECT view_id FROM user_db.user_table WHERE user_type != 1; ";

constexpr const char* kUpdateRotation =
    "UPDATE view_db.config_table SET value = %d WHERE key like 'rotate_cnt'; "
    "UPDATE view_db.config_table SET value = %d WHERE key like 'remove_repo'; ";

constexpr const char* kRebuildProfileTable =
    "BEGIN TRANSACTION;"
    "CREATE TABLE IF NOT EXISTS user_db.temp_profile_table (id INTEGER PRIMARY KEY AUTOINCREMENT, "
    "name VARCHAR NOT NULL, context VARCHAR NOT NULL DEFAULT '{}', attribute INTEGER DEFAULT 0);"
    "CREATE TABLE IF NOT EXISTS user_db.profile_apply_view_table (profile_id INTEGER, view_id INTEGER, "
    "PRIMARY KEY (profile_id, view_id) ON CONFLICT IGNORE);"
    "INSERT INTO user_db.temp_profile_table (id, name, context)  SELECT id, name, context FROM "
    "user_db.profile_table;"
    "DROP TABLE IF EXISTS user_db.profile_table;"
    "ALTER TABLE user_db.temp_profile_table RENAME TO profile_table;"
    "CREATE INDEX IF NOT EXISTS user_db.profile_id_idx ON profile_table(id);"
    "CREATE INDEX IF NOT EXISTS user_db.profile_apply_view_id_idx ON profile_apply_view_table(profile_id);"
    "CREATE INDEX IF NOT EXISTS user_db.profile_apply_view_vid_idx ON profile_apply_view_table(view_id);"
    "INSERT OR IGNORE INTO user_db.profile_table (name, context, attribute) "
    "VALUES ('internal for enc share', '{\"filtered_max_name_length\":143}', 7);"
    "INSERT INTO user_db.profile_apply_view_table (profile_id, view_id)  "
    "SELECT (SELECT max(id) FROM user_db.profile_table), view_id FROM user_db.user_table WHERE attribute & 8;"
    "END TRANSACTION;";

// The id that a view folder's name stands for; none when the name is anything but a decimal number.
std::optional<ViewId> ViewIdOf(const std::string& name) {
  ViewId view = 0;
  const char* end = name.data() + name.size();
  const std::from_chars_result result = std::from_chars(name.data(), end, view);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return view;
}

bool ReadRows(sqlite3* db, const char* query, const std::function<void(sqlite3_stmt*)>& row) {
  const db_util::Status status = db_util::ForEachRow(db, query, [&row](sqlite3_stmt* statement) {
    row(statement);
    return true;
  });
  // Only the step tells SQLite's reason; keep it so.
  const bool is_step = status.call == db_util::Status::Call::kStep;
  return Check(status, "%s(%d)%s%s\n", status.FailedCall(), status.code,
               is_step ? ": " : ", sql = ", is_step ? status.message.c_str() : query);
}

ViewId ColumnViewId(sqlite3_stmt* row) { return static_cast<ViewId>(sqlite3_column_int64(row, 0)); }

// How many versions a view keeps, by view id. Entry 0 stands for every user's view.
using RotationMap = std::map<ViewId, int>;

class SvrUpdater3400to3450 final : public ServerUpdater {
 public:
  SvrUpdater3400to3450(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context, FolderEdge(3400, 3450, SuccessLine::kStandardOutput), copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {{[this] { return UpdateDatabases(); }, "failed to update databases\n"}};
  }

  [[nodiscard]] bool UpdateDatabases() {
    RotationMap rotation;
    return Check(ReadRotationMap(rotation), "Failed to EnumCustomizedRotateTable\n") &&
           Check(SpreadSharedEntry(rotation), "Failed to UpdateRotateInfo\n") && UpdateViews(rotation) &&
           Check(sql::ExecRebuild(db(), kRebuildProfileTable, kRebuildProfileTable),
                 "Failed to update user db for profile table\n");
  }

  [[nodiscard]] bool ReadRotationMap(RotationMap& rotation) {
    return ReadRows(db(), kRotationQuery, [&rotation](sqlite3_stmt* row) {
      rotation[ColumnViewId(row)] = sqlite3_column_int(row, 1);
    });
  }

  [[nodiscard]] bool SpreadSharedEntry(RotationMap& rotation) {
    const auto shared = rotation.find(kSharedRow);
    if (shared == rotation.end()) return true;
    const auto spread = [&rotation, rotate_cnt = shared->second](sqlite3_stmt* row) {
      rotation[ColumnViewId(row)] = rotate_cnt;
    };
    return Check(ReadRows(db(), kUserViewsQuery, spread), "Failed to EnumUsersView\n");
  }

  [[nodiscard]] bool UpdateViews(const RotationMap& rotation) {
    std::vector<std::string> names;
    if (!Check(file_op::ListFolders(paths().view_folder, names),
               "Failed to get views in %s to update rotate count\n", paths().view_folder)) {
      return false;
    }
    for (const std::string& name : names) {
      const std::optional<ViewId> view = ViewIdOf(name);
      const auto entry = view ? rotation.find(*view) : rotation.end();
      if (entry != rotation.end() && !UpdateView(name, entry->first, entry->second)) return false;
    }
    return true;
  }

  [[nodiscard]] bool UpdateView(const std::string& name, ViewId view, int rotate_cnt) {
    // No versions to keep means: keep one, and remove the repository's files.
    const bool remove_repo = rotate_cnt == 0;
    return Check(AttachDatabase(db(), "view_db", paths().ViewDatabase(name)),
                 "Failed to attach view db for view %llu\n", view) &&
           Check(ExecSql(db(), kUpdateRotation, remove_repo ? 1 : rotate_cnt, remove_repo ? 1 : 0),
                 "Failed to update rotate_cnt for view %llu\n", view) &&
           Check(ExecScript(db(), "DETACH DATABASE view_db;"), "Failed to detach view db for view %llu\n",
                 view);
  }
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater3400to3450(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater3400to3450>(context, copies);
}

}  // namespace updater::server
