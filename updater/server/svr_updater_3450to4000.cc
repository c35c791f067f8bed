#include "updater/server/svr_updater_3450to4000.h"

#include "db-util/query.h"
#include "platform/sdk/app_privilege.h"
#include "updater/server/btrfs_uuids.h"
#include "updater/server/sql/delete_trigger.h"

namespace updater::server {
namespace {

using logger::Succeeded;

constexpr const char* kUpdateUserSchema =
    "BEGIN TRANSACTION; "
    "ALTER TABLE user_db.session_table ADD client_type INTEGER DEFAULT 0;"
    "ALTER TABLE user_db.session_table ADD client_platform VARCHAR DEFAULT 'Unknown';"
    "CREATE TABLE IF NOT EXISTS user_db.backup_task_table (session VARCHAR, view_id INTEGER, "
    "relative_path VARCHAR, is_readonly INTEGER);"
    " CREATE INDEX IF NOT EXISTS user_db.session_task_index ON backup_task_table(session);"
    " UPDATE user_db.profile_apply_table  SET user_id = "
    "(SELECT uid FROM user_db.user_table AS ut WHERE ut.id = user_id);"
    "CREATE TABLE IF NOT EXISTS user_db.rotate_setting_table (view_id INTEGER PRIMARY KEY ON CONFLICT REPLACE, "
    "rotate_cnt INTEGER, rotate_policy VARCHAR);"
    "INSERT INTO user_db.rotate_setting_table VALUES (0, "
    "(CASE WHEN EXISTS (SELECT 1 FROM user_db.customized_rotate_cnt_table WHERE view_id = 0) "
    "THEN (SELECT rotate_cnt FROM user_db.customized_rotate_cnt_table WHERE view_id = 0) "
    "WHEN (SELECT value FROM data_db.config_table WHERE key = 'remove_repo') = 1 THEN 0 "
    "ELSE (SELECT value FROM data_db.config_table WHERE key = 'rotate_cnt') END), 'fifo');"
    "DROP TABLE user_db.customized_rotate_cnt_table; "
    "END TRANSACTION; ";

constexpr const char* kCreateRemoveFileTable =
    " CREATE TABLE IF NOT EXISTS view_db.remove_file_table (uuid VARCHAR, file_id INTEGER); ";

constexpr const char* kUpdateViewRotation =
    "UPDATE view_db.config_table SET value = "
    "\t(CASE WHEN (SELECT value FROM view_db.config_table WHERE key like 'remove_repo') = 1 THEN 0 ELSE "
    "\t(SELECT value FROM view_db.config_table WHERE key like 'rotate_cnt') END) "
    "\tWHERE key like 'rotate_cnt'; "
    "DELETE FROM view_db.config_table WHERE key like 'remove_repo'; "
    "INSERT OR REPLACE INTO user_db.rotate_setting_table VALUES "
    "\t(%lld, (SELECT value FROM view_db.config_table WHERE key like 'rotate_cnt'), 'fifo'); "
    "CREATE INDEX IF NOT EXISTS view_db.tree_table_node_parent_index ON tree_table(node_id, parent_id);";

constexpr const char* kRemoveSharedRotation =
    "DELETE FROM data_db.config_table WHERE key like 'remove_repo' OR key like 'rotate_cnt'; ";

constexpr const char* kEnabledUsersQuery = "SELECT name FROM user_db.user_table WHERE user_type != 1; ";

}  // namespace

SvrUpdater3450to4000::SvrUpdater3450to4000(const UpdaterContext& context, const std::string& data,
                                           const std::string& log, const std::string& user,
                                           const std::string& client, const std::string& view_folder,
                                           const std::string& file_folder)
    : FolderUpdater(context, 3450, 4000, SuccessLine::kSystemLog,
                    {.data = data, .log = log, .user = user, .client = client}, {view_folder, file_folder}) {}

std::vector<ServerUpdater::Step> SvrUpdater3450to4000::Steps() {
  return {
      {[this] { return UpdateUserSchema(); }, "failed to update user database schema\n"},
      {[this] { return UpdateViewSchemas(); }, "failed to update view database schema\n"},
      {[this] { return UpdateRotation(); }, "failed to update all rotate_cnt\n"},
      {[this] { return UpdateBtrfsUuids(); }, "failed to update for btrfs uuid\n"},
      {[this] { return UpdatePrivileges(); }, "failed to update enabled to app privilege\n"},
  };
}

int SvrUpdater3450to4000::UpdateUserSchema() const {
  db_util::ExecFailure failure;
  if (db_util::Execute(db(), kUpdateUserSchema, failure) == SQLITE_OK) return 0;
  logger::UpdaterLog("sqlite3_exec(%d), %s, sql = %s", failure.code, failure.message, kUpdateUserSchema);
  db_util::LogReasonBehind(kUpdateUserSchema, failure);
  return -1;
}

int SvrUpdater3450to4000::UpdateViewSchemas() {
  const std::string script = std::string(kCreateRemoveFileTable) + sql::kReplaceDeleteTrigger;
  return ForEachView([this, &script](ViewId view) {
    return Succeeded(ExecOnView(view, script), "Failed to update database schema for view %llu\n", view) ? 0
                                                                                                         : -1;
  });
}

// Every user's view writes the shared row in turn, so the last one decides it; keep it so.
int SvrUpdater3450to4000::UpdateRotation() {
  return UpdateViewRotations(kUpdateViewRotation) == 0 ? RemoveSharedRotation() : -1;
}

int SvrUpdater3450to4000::RemoveSharedRotation() const {
  db_util::ExecFailure failure;
  if (db_util::Execute(db(), kRemoveSharedRotation, failure) == SQLITE_OK) return 0;
  logger::UpdaterLog("SQLExecute failed, %s, sql = %s\n", failure.message, kRemoveSharedRotation);
  db_util::LogReasonBehind(kRemoveSharedRotation, failure);
  return -1;
}

int SvrUpdater3450to4000::UpdateBtrfsUuids() {
  UuidRenames renames;
  if (!Succeeded(FindBtrfsRenames(db(), platform().volumes, renames), "Fail to get btrfs uuid history\n")) {
    return -1;
  }
  // Nothing to rename, so there is no view database to open for it.
  if (renames.empty()) return 0;
  const auto rename_in_view = [this, &renames](ViewId view) {
    return Succeeded(RenameUuidsInView(db(), folders(), view, renames),
                     "Failed to update uuid for view %llu\n", view)
               ? 0
               : -1;
  };
  return Succeeded(RenameUuidsInVolumeTable(db(), renames), "Failed to update volume table\n") &&
                 ForEachView(rename_in_view) == 0 &&
                 Succeeded(RenameFileFolders(folders(), renames), "Failed to update uuid for file db\n")
             ? 0
             : -1;
}

int SvrUpdater3450to4000::UpdatePrivileges() const {
  std::vector<std::string> names;
  const db_util::QueryResult result =
      db_util::ForEachRow(db(), kEnabledUsersQuery, [&names](sqlite3_stmt* row) {
        names.push_back(db_util::ColumnText(row, 0));
        return true;
      });
  if (!Succeeded(result.ok() ? 0 : -1, "Fail to enum enabled user\n")) return -1;
  for (const std::string& name : names) {
    // Logs a refusal, which is no failure here: the account may be gone already.
    platform::sdk::AllowApplication(platform().app_privilege, name);
  }
  return 0;
}

}  // namespace updater::server
