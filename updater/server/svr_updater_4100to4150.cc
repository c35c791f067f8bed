// 4100 to 4150: rebuilds the tables of every view database with `removed` and `file_type` in place of the
// bits of `attribute`.
#include "updater/framework/attached_database.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"
#include "updater/framework/views.h"
#include "updater/server/sql/delete_trigger.h"
#include "updater/server/sql/rebuilt_view.h"
#include "updater/server/updaters.h"

namespace updater::server {
namespace {

constexpr const char* kRenameOldTables =
    " BEGIN TRANSACTION; "
    "ALTER TABLE view_db.node_table RENAME TO node_table_old; "
    "ALTER TABLE view_db.version_table RENAME TO version_table_old; ";

// Rows go in by position. Bit 0 of the old attribute is "removed", bit 1 the file type.
constexpr const char* kCopyRows =
    "INSERT INTO view_db.node_table SELECT node_id, parent_id, (attribute & 1), ((attribute & 2) == 2), max_id, "
    "sync_id, ver_cnt, ctime, mtime, name, path, data, v_base_id, v_file_uuid, v_file_id, v_file_size, "
    "v_file_hash, v_mtime, v_exec_bit, v_uid, v_gid, v_mode, v_sess_id, v_client_id, v_committer_sess_id, "
    "v_mac_attr, v_acl_attribute, v_acl_hash, v_share_priv_disabled, v_share_priv_deny_list, "
    "v_share_priv_ro_list, v_share_priv_rw_list, v_share_priv_hash, node_delta_file_uuid, node_delta_file_id, "
    "sign_id FROM view_db.node_table_old; "

    "INSERT INTO view_db.version_table SELECT ver_id, node_id, (attribute & 1), ((attribute & 2) == 2), sync_id, "
    "base_id, ctime, file_uuid, file_id, file_size, file_hash, mtime, exec_bit, uid, gid, mode, sess_id, "
    "client_id, committer_sess_id, win_attr, linux_attr, mac_attr, plat_attr, acl_attribute, acl_hash, "
    "share_priv_disabled, share_priv_deny_list, share_priv_ro_list, share_priv_rw_list, share_priv_hash "
    "FROM view_db.version_table_old; ";

constexpr const char* kDropOldTables =
    "DROP TABLE IF EXISTS view_db.node_table_old; DROP TABLE IF EXISTS view_db.version_table_old; ";

// An index keeps its name when its table is renamed, so all of them can be made only when the old tables are
// gone; and making them after the rows takes a fraction of the time.
std::string RebuildScript() {
  return std::string(kRenameOldTables) + sql::CreateRebuiltTables() + sql::kReplaceDeleteTrigger + kCopyRows +
         kDropOldTables + sql::CreateRebuiltIndexes() + "END;";
}

// As the log shows it.
std::string LoggedScript() {
  return std::string(kRenameOldTables) + sql::CreateRebuiltTables() + sql::CreateRebuiltIndexes() +
         sql::kReplaceDeleteTrigger + kCopyRows + kDropOldTables + "END;";
}

class SvrUpdater4100to4150 final : public ServerUpdater {
 public:
  SvrUpdater4100to4150(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context, FolderEdge(4100, 4150, SuccessLine::kSystemLog), copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {{[this] { return UpdateViews(); }, "failed to update all view db\n"}};
  }

  [[nodiscard]] bool UpdateViews() {
    if (ViewsAreNew()) return true;
    return ForEachView(db(), [this](ViewId view) {
      return Check(Rebuild(view), "Failed to update view db for view %llu\n", view);
    });
  }

  [[nodiscard]] bool Rebuild(ViewId view) {
    const std::string path = paths().ViewDatabase(view);
    const db_util::Status status = ExecAttachedQuietly(db(), "view_db", path, RebuildScript());
    if (status.ok()) return true;
    const std::string logged = AttachedScript("view_db", path, LoggedScript());
    UpdaterLog("Failed to exec %s\n", logged);
    LogReasonBehind(logged, status);
    return false;
  }
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater4100to4150(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater4100to4150>(context, copies);
}

}  // namespace updater::server
