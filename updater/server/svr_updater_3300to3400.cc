#include "updater/server/svr_updater_3300to3400.h"

#include <unistd.h>

#include <cstdio>

#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "platform/sdk/volume_uuid.h"
#include "updater/server/new_databases.h"
#include "updater/server/split_preparation.h"

namespace updater::server {
namespace {

using db_util::ExecScript;
using db_util::ExecScriptAs;
using db_util::ExecSql;
using logger::Succeeded;

constexpr const char* kNewDataDatabaseName = "/new-syncfolder.sqlite";

// For removal that the server defers. Their parent is not made here.
constexpr const char* kRemovalFolders[] = {"/rm/file",       "/rm/delta",       "/rm/node_delta",
                                           "/rm/deref_file", "/rm/rotate_node", "/rm/rotate_base"};

// The home volume's uuid goes into each row that names a stored file.
constexpr const char* kCopyViewRows =
    "INSERT INTO view_db.node_table SELECT node_id, parent_id, attribute, max_id, sync_id, ver_cnt, ctime, mtime, "
    "name, path, data, v_base_id, (CASE WHEN v_file_id > 0 THEN '%q' ELSE NULL END) AS v_file_uuid, v_file_id, "
    "v_file_size, v_file_hash, v_mtime, v_exec_bit, v_uid, v_gid, v_mode, v_sess_id, v_client_id, "
    "(CASE WHEN v_mac_attr = '' THEN '' ELSE 'uuid=%q&' || v_mac_attr END), v_acl_attribute, v_acl_hash, "
    "v_share_priv_disabled, v_share_priv_deny_list, v_share_priv_ro_list, v_share_priv_rw_list, "
    "v_share_priv_hash, (CASE WHEN node_delta_file_id > 0 THEN '%q' ELSE NULL END) AS node_delta_file_uuid, "
    "node_delta_file_id, 0 AS sign_id FROM data_db.node_table WHERE data_db.node_table.view_id = %lld; "

    "INSERT INTO view_db.version_table SELECT ver_id, node_id, attribute, sync_id, base_id, ctime, "
    "(CASE WHEN file_id > 0 THEN '%q' ELSE NULL END) AS file_uuid, file_id, file_size, file_hash, mtime, "
    "exec_bit, uid, gid, mode, sess_id, client_id, win_attr, linux_attr, "
    "(CASE WHEN mac_attr = '' THEN '' ELSE 'uuid=%q&' || mac_attr END), plat_attr, acl_attribute, acl_hash, "
    "share_priv_disabled, share_priv_deny_list, share_priv_ro_list, share_priv_rw_list, share_priv_hash "
    "FROM data_db.version_table WHERE node_id IN "
    "(SELECT node_id FROM data_db.node_table WHERE data_db.node_table.view_id = %lld); "

    "INSERT INTO view_db.tree_table SELECT * FROM data_db.tree_table WHERE node_id IN "
    "(SELECT node_id FROM data_db.node_table WHERE data_db.node_table.view_id = %lld)%s; "

    "UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'sync_id') "
    "WHERE key = 'sync_id'; "
    "UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'rotate_cnt') "
    "WHERE key = 'rotate_cnt'; "
    "UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'remove_repo') "
    "WHERE key = 'remove_repo'; "
    "UPDATE view_db.config_table SET value = (SELECT value FROM data_db.config_table WHERE key = 'rotate_span') "
    "WHERE key = 'rotate_span'; ";

// tree_table has no key, so its rows keep the order in which they are stored, whichever index finds them. The
// sign keeps SQLite from reading the whole table in that order.
constexpr const char* kInStoredOrder = " ORDER BY +data_db.tree_table.rowid";

// Looks into version_table once per removed node, so the indexes come before it.
constexpr const char* kCountVersionsOfRemovedNodes =
    "UPDATE view_db.node_table SET ver_cnt = "
    "(SELECT COUNT(*) FROM view_db.version_table WHERE node_id = node_table.node_id) WHERE attribute & 1; ";

constexpr const char* kCopyFileRows =
    "INSERT INTO file_db.file_table SELECT * FROM data_db.file_table; "
    "INSERT INTO file_db.delta_table SELECT * FROM data_db.delta_table; "
    "UPDATE file_db.config_table SET \t"
    "value = (SELECT value FROM data_db.config_table WHERE key = 'file_id') WHERE key = 'file_id'; "
    "UPDATE file_db.config_table SET \t"
    "value = (SELECT value FROM data_db.config_table WHERE key = 'delta_file_id') WHERE key = 'delta_id'; "
    "UPDATE file_db.config_table SET \t"
    "value = (SELECT value FROM data_db.config_table WHERE key = 'node_delta_file_id') "
    "WHERE key = 'node_delta_id'; ";

constexpr const char* kUpdateUserDatabase =
    "INSERT OR REPLACE INTO user_db.config_table (key, value) VALUES \t"
    "('view_id', (CASE WHEN (SELECT MAX(view_id) FROM user_table) IS NOT NULL THEN \t\t"
    "((SELECT MAX(view_id) FROM user_table) + 1) ELSE 1 END));"
    "CREATE TABLE IF NOT EXISTS user_db.customized_rotate_cnt_table "
    "(\tview_id\t\tINTEGER PRIMARY KEY ON CONFLICT REPLACE,    rotate_cnt\tINTEGER );";

// To MAX() a text is larger than every number, and added to it reads as its digits: the next view id would be
// one that a living user has.
constexpr const char* kRepairNextViewId =
    "UPDATE user_db.config_table SET value = (SELECT MAX(CAST(view_id AS INTEGER)) + 1 FROM user_db.user_table) "
    "WHERE key = 'view_id' AND (SELECT typeof(MAX(view_id)) FROM user_db.user_table) IN ('text', 'blob');";

constexpr const char* kFillNewDataDatabase =
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'row1'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'serial'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'rotate_cnt'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'remove_repo'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'rotate_span'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'version'; "
    "INSERT INTO new_data_db.config_table SELECT * FROM data_db.config_table WHERE key = 'branch'; "
    "INSERT INTO new_data_db.volume_table (uuid, repo_path) VALUES ('%q', '%q'); ";

constexpr const char* kInsertDaemonSyncId =
    "INSERT INTO client_db.config_table (key, value) VALUES \t"
    "('sync_id_syncd', (SELECT value FROM data_db.config_table WHERE key = 'sync_id')); ";
constexpr const char* kInsertViewSyncId =
    "INSERT INTO client_db.config_table (key, value) VALUES ('sync_id_view_%llu', \t"
    "(CASE WHEN (SELECT sync_id FROM progress_table WHERE view_id = %lld) IS NOT NULL THEN \t\t"
    "(SELECT sync_id FROM progress_table WHERE view_id = %lld) \t\t"
    "ELSE (SELECT value FROM client_db.config_table WHERE key = 'sync_id') END)); ";

}  // namespace

SvrUpdater3300to3400::SvrUpdater3300to3400(const UpdaterContext& context, const std::string& sync_folder,
                                           const std::string& data, const std::string& log,
                                           const std::string& user, const std::string& client,
                                           const std::string& view_folder, const std::string& file_folder)
    : ServerUpdater(context,
                    {.from = {kMasterBranch, 3300},
                     .to = {kMasterBranch, 3400},
                     .databases = DatabaseSet::kWithLog,
                     .scope = VersionScope::kFour,
                     .success = SuccessLine::kStandardOutput},
                    {.data = data, .log = log, .user = user, .client = client}),
      sync_folder_(sync_folder),
      new_data_database_(sync_folder + kNewDataDatabaseName),
      folders_(view_folder, file_folder) {}

std::vector<ServerUpdater::Step> SvrUpdater3300to3400::Steps() {
  return {
      {[this] { return RefuseLostNodes(db()); }, "failed to update databases\n"},
      {[this] { return CreateFolders(); }, "failed to create new db and rotate folders\n"},
      {[this] { return SplitDatabases(); }, "failed to update databases\n"},
  };
}

int SvrUpdater3300to3400::CreateFolders() const {
  // A folder that stays makes the creation of its databases fail.
  (void)file_op::FSRemoveTree(folders_.view_folder(), 0);
  (void)file_op::FSRemoveTree(folders_.file_folder(), 0);
  if (MakeFolder(folders_.view_folder()) < 0 || MakeFolder(folders_.file_folder()) < 0) return -1;
  for (const char* folder : kRemovalFolders) {
    if (MakeFolder(sync_folder_ + folder) < 0) return -1;
  }
  return 0;
}

int SvrUpdater3300to3400::SplitDatabases() {
  return Succeeded(platform::sdk::GetVolumeUuid(platform().volumes, sync_folder_, home_uuid_),
                   "Cannot get home volume uuid (%s)\n", sync_folder_) &&
                 SplitViews() == 0 && SplitFiles() == 0 &&
                 Succeeded(UpdateUserDatabase(), "Failed to update user db config_table\n") &&
                 Succeeded(ReplaceDataDatabase(), "Failed to update data db\n")
             ? 0
             : -1;
}

int SvrUpdater3300to3400::SplitViews() const {
  std::vector<ViewId> views;
  if (ReadViewIds(db(), views) < 0) return -1;
  if (views.size() > 1) IndexViewLookups(db());
  for (const ViewId view : views) {
    if (SplitView(view) < 0) return -1;
  }
  return 0;
}

int SvrUpdater3300to3400::SplitView(ViewId view) const {
  return Succeeded(CreateViewDatabase(folders_, view, paths().data),
                   "Failed to create new view db for view %llu\n", view) &&
                 Succeeded(AttachDatabase(db(), "view_db", folders_.ViewDatabase(view)),
                           "Failed to attach new view db for view %llu\n", view) &&
                 Succeeded(CopyViewRows(view), "Failed to update view db for view %llu\n", view) &&
                 Succeeded(ExecScript(db(), "DETACH DATABASE view_db;"),
                           "Failed to detach new view db for view %llu\n", view)
             ? 0
             : -1;
}

int SvrUpdater3300to3400::CopyViewRows(ViewId view) const {
  const long long id = StoredId(view);
  const auto copy_statements = [&](std::string& out, const char* order) {
    return db_util::FormatSql(out, kCopyViewRows, home_uuid_, home_uuid_, home_uuid_, id, home_uuid_,
                              home_uuid_, id, id, order);
  };
  std::string copy;
  std::string logged;
  const bool copied = copy_statements(copy, kInStoredOrder) && copy_statements(logged, "") &&
                      ExecScriptAs(db(),
                                   copy + "BEGIN TRANSACTION;" + CreateViewIndexes() +
                                       kCountVersionsOfRemovedNodes + "END TRANSACTION;",
                                   logged + kCountVersionsOfRemovedNodes) == 0;
  return Succeeded(copied ? 0 : -1, "Failed to dump record from data_db to view_db for view %llu\n", view)
             ? 0
             : -1;
}

int SvrUpdater3300to3400::SplitFiles() const {
  return Succeeded(CreateFileDatabase(folders_, home_uuid_, paths().data),
                   "Failed to create new file db for home_uuid %s\n", home_uuid_) &&
                 Succeeded(AttachDatabase(db(), "file_db", folders_.FileDatabase(home_uuid_)),
                           "Failed to attach new file db for home_uuid %s\n", home_uuid_) &&
                 Succeeded(CopyFileRows(), "Failed to update file db for home_uuid %s\n", home_uuid_) &&
                 Succeeded(ExecScript(db(), "DETACH DATABASE file_db;"),
                           "Failed to detach new file db for home_uuid %s\n", home_uuid_)
             ? 0
             : -1;
}

int SvrUpdater3300to3400::CopyFileRows() const {
  const int copied = ExecScriptAs(
      db(), std::string(kCopyFileRows) + "BEGIN TRANSACTION;" + CreateFileIndexes() + "END TRANSACTION;",
      kCopyFileRows);
  return Succeeded(copied, "Failed to dump record from data_db to file_db for home_uuid %s\n", home_uuid_)
             ? 0
             : -1;
}

int SvrUpdater3300to3400::UpdateUserDatabase() const {
  return ExecScriptAs(db(), std::string(kUpdateUserDatabase) + kRepairNextViewId, kUpdateUserDatabase);
}

int SvrUpdater3300to3400::ReplaceDataDatabase() const {
  return Succeeded(CreateNewDataDatabase(new_data_database_, paths().data), "Failed to CreateNewDataDB\n") &&
                 Succeeded(FillNewDataDatabase(), "Failed to FillNewDataDB\n") &&
                 Succeeded(InsertViewSyncIds(), "Failed to InsertViewSyncId\n") &&
                 Succeeded(ReattachDataDatabase(), "Failed to ReattachDataDB\n")
             ? 0
             : -1;
}

int SvrUpdater3300to3400::FillNewDataDatabase() const {
  return Succeeded(AttachDatabase(db(), "new_data_db", new_data_database_),
                   "Failed to attach new syncfolder-db.sqlite (%s)\n", new_data_database_) &&
                 Succeeded(ExecSql(db(), kFillNewDataDatabase, home_uuid_, sync_folder_),
                           "Cannot fill new syncfolder-db.sqlite (%s)\n", new_data_database_) &&
                 Succeeded(ExecScript(db(), "DETACH DATABASE new_data_db;"),
                           "Failed to detach new syncfolder-db.sqlite (%s)\n", new_data_database_)
             ? 0
             : -1;
}

int SvrUpdater3300to3400::InsertViewSyncIds() const {
  std::vector<ViewId> views;
  if (ReadViewIds(db(), views) < 0) return -1;
  std::string script = kInsertDaemonSyncId;
  for (const ViewId view : views) {
    std::string statement;
    const long long id = StoredId(view);
    if (!db_util::FormatSql(statement, kInsertViewSyncId, view, id, id)) return -1;
    script += statement;
  }
  return Succeeded(ExecScript(db(), script), "Failed to insert view sync_id into client db\n") ? 0 : -1;
}

int SvrUpdater3300to3400::ReattachDataDatabase() const {
  return Succeeded(ExecScript(db(), "DETACH DATABASE data_db;"),
                   "Failed to detach syncfolder-db for rename\n") &&
                 Succeeded(unlink(paths().data.c_str()), "Failed to unlink old syncfolder-db (%s)\n",
                           paths().data) &&
                 Succeeded(MoveNewDataDatabase(), "Failed to rename syncfolder db '%s' -> '%s'\n",
                           new_data_database_, paths().data) &&
                 Succeeded(AttachDatabase(db(), "data_db", paths().data),
                           "Failed to attach syncfolder-db after rename\n")
             ? 0
             : -1;
}

// Neither of the two names may keep a companion file: it would be replayed into whatever stands there next.
int SvrUpdater3300to3400::MoveNewDataDatabase() const {
  return db_util::FoldDatabase(new_data_database_) == 0 && db_util::RemoveCompanions(paths().data) == 0 &&
                 std::rename(new_data_database_.c_str(), paths().data.c_str()) == 0
             ? 0
             : -1;
}

}  // namespace updater::server
