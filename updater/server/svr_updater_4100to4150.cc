#include "updater/server/svr_updater_4100to4150.h"

#include "updater/server/sql/delete_trigger.h"
#include "updater/server/sql/indexes.h"
#include "updater/server/sql/view_tables.h"

namespace updater::server {
namespace {

using logger::Succeeded;
using sql::Index;

constexpr const char* kRenameOldTables =
    " BEGIN TRANSACTION; "
    "ALTER TABLE view_db.node_table RENAME TO node_table_old; "
    "ALTER TABLE view_db.version_table RENAME TO version_table_old; ";

constexpr Index kNodeIndexes[] = {
    {"node_table", "node_id"},   {"node_table", "parent_id"}, {"node_table", "removed"},
    {"node_table", "file_type"}, {"node_table", "max_id"},    {"node_table", "sync_id"},
    {"node_table", "name"},      {"node_table", "path"},
};
constexpr const char* kNodePathCaseIndex =
    "CREATE INDEX IF NOT EXISTS view_db.node_table_path_index_case ON node_table (path COLLATE BINARY);";
constexpr Index kVersionIndexes[] = {
    {"version_table", "ver_id"},    {"version_table", "node_id"}, {"version_table", "removed"},
    {"version_table", "file_type"}, {"version_table", "sync_id"}, {"version_table", "sess_id"},
};

// Bit 0 of the old attribute is "removed", bit 1 the file type.
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

std::string CreateViewIndexes() {
  return sql::CreateIndexes("view_db", kNodeIndexes) + kNodePathCaseIndex +
         sql::CreateIndexes("view_db", kVersionIndexes);
}

// `late_indexes` are made once the old tables are gone.
std::string RebuildScript(const std::string& late_indexes) {
  return kRenameOldTables + sql::CreateViewTables("view_db", sql::kFileTypeLayout) + CreateViewIndexes() +
         sql::kReplaceDeleteTrigger + kCopyRows + kDropOldTables + late_indexes + "END;";
}

}  // namespace

SvrUpdater4100to4150::SvrUpdater4100to4150(const UpdaterContext& context, const std::string& data,
                                           const std::string& log, const std::string& user,
                                           const std::string& client, const std::string& view_folder,
                                           const std::string& file_folder)
    : FolderUpdater(context, 4100, 4150, SuccessLine::kSystemLog,
                    {.data = data, .log = log, .user = user, .client = client}, {view_folder, file_folder}) {}

std::vector<ServerUpdater::Step> SvrUpdater4100to4150::Steps() {
  return {{[this] { return UpdateViews(); }, "failed to update all view db\n"}};
}

int SvrUpdater4100to4150::UpdateViews() {
  return ForEachView([this](ViewId view) {
    return Succeeded(Rebuild(view), "Failed to update view db for view %llu\n", view) ? 0 : -1;
  });
}

// An index keeps its name when its table is renamed, so the first run of the index statements makes only
// those with new names. The others come with the second run, of which the log does not tell.
int SvrUpdater4100to4150::Rebuild(ViewId view) const {
  const std::string path = folders().ViewDatabase(view);
  const std::string script =
      AttachedScript("view_db", path, TuneStatements("view_db") + RebuildScript(CreateViewIndexes()));
  db_util::ExecFailure failure;
  if (!script.empty() && db_util::Execute(db(), script, failure) == SQLITE_OK) return 0;
  const std::string logged = AttachedScript("view_db", path, RebuildScript({}));
  logger::UpdaterLog("Failed to exec %s\n", logged);
  db_util::LogReasonBehind(logged, failure);
  return -1;
}

}  // namespace updater::server
