#include "updater/server/svr_updater_3400to3450.h"

#include <charconv>
#include <optional>

#include "db-util/query.h"
#include "file-op/file_op.h"
#include "updater/server/sql/rebuild.h"

namespace updater::server {
namespace {

using db_util::ExecScript;
using db_util::ExecSql;
using logger::Succeeded;

constexpr ViewId kEveryUserView = 0;

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

int ReadRows(sqlite3* db, const char* query, const std::function<void(sqlite3_stmt*)>& row) {
  const db_util::QueryResult result = db_util::ForEachRow(db, query, [&row](sqlite3_stmt* statement) {
    row(statement);
    return true;
  });
  if (result.ok()) return 0;
  if (result.failed_at == db_util::QueryResult::Stage::kPrepare) {
    logger::UpdaterLog("sqlite3_prepare_v2(%d), sql = %s\n", result.code, query);
  } else {
    logger::UpdaterLog("sqlite3_step(%d): %s\n", result.code, result.message);
  }
  return -1;
}

ViewId ColumnViewId(sqlite3_stmt* row) { return static_cast<ViewId>(sqlite3_column_int64(row, 0)); }

}  // namespace

SvrUpdater3400to3450::SvrUpdater3400to3450(const UpdaterContext& context, const std::string& data,
                                           const std::string& log, const std::string& user,
                                           const std::string& client, const std::string& view_folder,
                                           const std::string& file_folder)
    : FolderUpdater(context, 3400, 3450, SuccessLine::kStandardOutput,
                    {.data = data, .log = log, .user = user, .client = client}, {view_folder, file_folder}) {}

std::vector<ServerUpdater::Step> SvrUpdater3400to3450::Steps() {
  return {{[this] { return UpdateDatabases(); }, "failed to update databases\n"}};
}

int SvrUpdater3400to3450::UpdateDatabases() {
  RotationMap rotation;
  return Succeeded(ReadRotationMap(rotation), "Failed to EnumCustomizedRotateTable\n") &&
                 Succeeded(SpreadSharedEntry(rotation), "Failed to UpdateRotateInfo\n") &&
                 UpdateViews(rotation) == 0 &&
                 Succeeded(RebuildProfileTable(), "Failed to update user db for profile table\n")
             ? 0
             : -1;
}

int SvrUpdater3400to3450::ReadRotationMap(RotationMap& rotation) const {
  return ReadRows(db(), kRotationQuery, [&rotation](sqlite3_stmt* row) {
    rotation[ColumnViewId(row)] = sqlite3_column_int(row, 1);
  });
}

int SvrUpdater3400to3450::SpreadSharedEntry(RotationMap& rotation) const {
  const auto shared = rotation.find(kEveryUserView);
  if (shared == rotation.end()) return 0;
  const int rotate_cnt = shared->second;
  const int result = ReadRows(db(), kUserViewsQuery, [&rotation, rotate_cnt](sqlite3_stmt* row) {
    rotation[ColumnViewId(row)] = rotate_cnt;
  });
  return Succeeded(result, "Failed to EnumUsersView\n") ? 0 : -1;
}

int SvrUpdater3400to3450::UpdateViews(const RotationMap& rotation) const {
  std::vector<std::string> names;
  if (!Succeeded(file_op::ListFolders(folders().view_folder(), names),
                 "Failed to get views in %s to update rotate count\n", folders().view_folder())) {
    return -1;
  }
  for (const std::string& name : names) {
    const std::optional<ViewId> view = ViewIdOf(name);
    const auto entry = view ? rotation.find(*view) : rotation.end();
    if (entry != rotation.end() && UpdateView(name, entry->first, entry->second) < 0) return -1;
  }
  return 0;
}

int SvrUpdater3400to3450::UpdateView(const std::string& name, ViewId view, int rotate_cnt) const {
  // No versions to keep means: keep one, and remove the repository's files.
  const bool remove_repo = rotate_cnt == 0;
  return Succeeded(AttachDatabase(db(), "view_db", folders().ViewDatabase(name)),
                   "Failed to attach view db for view %llu\n", view) &&
                 Succeeded(ExecSql(db(), kUpdateRotation, remove_repo ? 1 : rotate_cnt, remove_repo ? 1 : 0),
                           "Failed to update rotate_cnt for view %llu\n", view) &&
                 Succeeded(ExecScript(db(), "DETACH DATABASE view_db;"),
                           "Failed to detach view db for view %llu\n", view)
             ? 0
             : -1;
}

int SvrUpdater3400to3450::RebuildProfileTable() const { return sql::ExecRebuild(db(), kRebuildProfileTable); }

}  // namespace updater::server
