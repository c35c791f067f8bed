// 3450 to 4000: sessions with a client type, backup tasks, rotation settings in the user database, removed
// files queued as rows, btrfs uuids in their new form, and the application privilege for every user.
#include "db-util/query.h"
#include "platform/sdk/app_privilege.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"
#include "updater/framework/views.h"
#include "updater/server/btrfs_uuids.h"
#include "updater/server/sql/delete_trigger.h"
#include "updater/server/updaters.h"
#include "updater/server/view_rotations.h"

namespace updater::server {
namespace {

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

constexpr const char* kUsersButSharesQuery = "SELECT name FROM user_db.user_table WHERE user_type != 1; ";

class SvrUpdater3450to4000 final : public ServerUpdater {
 public:
  SvrUpdater3450to4000(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context, FolderEdge(3450, 4000, SuccessLine::kSystemLog), copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {
        {[this] { return UpdateUserSchema(); }, "failed to update user database schema\n"},
        {[this] { return UpdateViewSchemas(); }, "failed to update view database schema\n"},
        {[this] { return UpdateRotation(); }, "failed to update all rotate_cnt\n"},
        {[this] { return UpdateBtrfsUuids(); }, "failed to update for btrfs uuid\n"},
        {[this] { return UpdatePrivileges(); }, "failed to update enabled to app privilege\n"},
    };
  }

  [[nodiscard]] bool UpdateUserSchema() {
    const db_util::Status status = db_util::Execute(db(), kUpdateUserSchema);
    if (status.ok()) return true;
    UpdaterLog("sqlite3_exec(%d), %s, sql = %s", status.code, status.message, kUpdateUserSchema);
    LogReasonBehind(kUpdateUserSchema, status);
    return false;
  }

  [[nodiscard]] bool UpdateViewSchemas() {
    const std::string script = std::string(kCreateRemoveFileTable) + sql::kReplaceDeleteTrigger;
    return ForEachView(db(), [this, &script](ViewId view) {
      return Check(ExecOnView(db(), paths(), view, script),
                   "Failed to update database schema for view %llu\n", view);
    });
  }

  // Every user's view writes the shared row in turn, so the last one decides it; keep it so.
  [[nodiscard]] bool UpdateRotation() {
    return UpdateViewRotations(db(), paths(), kUpdateViewRotation) && RemoveSharedRotation();
  }

  [[nodiscard]] bool RemoveSharedRotation() {
    const db_util::Status status = db_util::Execute(db(), kRemoveSharedRotation);
    if (status.ok()) return true;
    UpdaterLog("SQLExecute failed, %s, sql = %s\n", status.message, kRemoveSharedRotation);
    LogReasonBehind(kRemoveSharedRotation, status);
    return false;
  }

  [[nodiscard]] bool UpdateBtrfsUuids() {
    UuidRenames renames;
    if (!Check(FindBtrfsRenames(db(), platform().volumes, renames), "Fail to get btrfs uuid history\n")) {
      return false;
    }
    // Nothing to rename, so there is no view database to open for it.
    if (renames.empty()) return true;
    const auto rename_in_view = [this, &renames](ViewId view) {
      return Check(RenameUuidsInView(db(), paths(), view, renames), "Failed to update uuid for view %llu\n",
                   view);
    };
    return Check(RenameUuidsInVolumeTable(db(), renames), "Failed to update volume table\n") &&
           ForEachView(db(), rename_in_view) &&
           Check(RenameFileFolders(paths(), renames), "Failed to update uuid for file db\n");
  }

  [[nodiscard]] bool UpdatePrivileges() {
    std::vector<std::string> names;
    const auto add_name = [&names](sqlite3_stmt* row) {
      names.push_back(db_util::ColumnText(row, 0));
      return true;
    };
    if (!Check(db_util::ForEachRow(db(), kUsersButSharesQuery, add_name), "Fail to enum enabled user\n")) {
      return false;
    }
    // Logs a refusal, which is no failure here: the account may be gone already.
    platform::sdk::AllowApplication(platform().app_privilege, names);
    return true;
  }
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater3450to4000(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater3450to4000>(context, copies);
}

}  // namespace updater::server
