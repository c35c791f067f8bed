// 4100 to 4150: rebuilds the tables of every view database with `removed` and `file_type` in place of the
// bits of `attribute`.
#include "updater/framework/attached_database.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"
#include "updater/framework/views.h"
#include "updater/server/sql/delete_trigger.h"
#include "updater/server/sql/indexes.h"
#include "updater/server/updaters.h"

namespace updater::server {
namespace {

using sql::Index;

constexpr const char* kRenameOldTables =
    " BEGIN TRANSACTION; "
    "ALTER TABLE view_db.node_table RENAME TO node_table_old; "
    "ALTER TABLE view_db.version_table RENAME TO version_table_old; ";

// Rows go in by position, so columns and the statements below them change together. "DATATIME" is how every
// installed schema spells it.
constexpr const char* kCreateTables =
    "CREATE TABLE view_db.node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, "
    "removed INTEGER, file_type INTEGER, max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER, "
    "ctime DATETIME DEFAULT (strftime('%s','now')), "
    "mtime DATETIME DEFAULT (strftime('%s','now')), name VARCHAR NOT NULL COLLATE NOCASE, "
    "path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL, v_base_id INTEGER, "
    "v_file_uuid TEXT DEFAULT NULL, v_file_id INTEGER, v_file_size INTEGER, v_file_hash VARCHAR(40), "
    "v_mtime DATETIME, v_exec_bit INTEGER, v_uid INTEGER, v_gid INTEGER, v_mode INTEGER, v_sess_id INTEGER, "
    "v_client_id VARCHAR, v_committer_sess_id TEXT DEFAULT '', v_mac_attr BLOB DEFAULT NULL, "
    "v_acl_attribute TEXT DEFAULT NULL, v_acl_hash TEXT DEFAULT NULL, "
    "v_share_priv_disabled INTEGER DEFAULT 0, v_share_priv_deny_list TEXT DEFAULT '', "
    "v_share_priv_ro_list TEXT DEFAULT '', v_share_priv_rw_list TEXT DEFAULT '', "
    "v_share_priv_hash TEXT DEFAULT '', node_delta_file_uuid TEXT DEFAULT NULL, node_delta_file_id INTEGER, "
    "sign_id INTEGER); "
    "CREATE TABLE view_db.version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, "
    "removed INTEGER, file_type INTEGER, sync_id INTEGER, base_id INTEGER, "
    "ctime DATATIME DEFAULT (strftime('%s','now')), "
    "file_uuid TEXT DEFAULT NULL, file_id INTEGER, file_size INTEGER, file_hash VARCHAR(40), mtime DATETIME, "
    "exec_bit INTEGER, uid INTEGER, gid INTEGER, mode INTEGER, sess_id INTEGER, client_id VARCHAR, "
    "committer_sess_id TEXT DEFAULT '', win_attr BLOB DEFAULT NULL, linux_attr BLOB DEFAULT NULL, "
    "mac_attr BLOB DEFAULT NULL, plat_attr BLOB DEFAULT NULL, acl_attribute TEXT DEFAULT NULL, "
    "acl_hash TEXT DEFAULT NULL, share_priv_disabled INTEGER DEFAULT 0, share_priv_deny_list TEXT DEFAULT '', "
    "share_priv_ro_list TEXT DEFAULT '', share_priv_rw_list TEXT DEFAULT '', "
    "share_priv_hash TEXT DEFAULT ''); ";

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

constexpr const char* kDropOldTables =
    "DROP TABLE IF EXISTS view_db.node_table_old; DROP TABLE IF EXISTS view_db.version_table_old; ";

std::string CreateRebuiltIndexes() {
  return sql::CreateIndexes("view_db", kNodeIndexes) + kNodePathCaseIndex +
         sql::CreateIndexes("view_db", kVersionIndexes);
}

// `late_indexes` are made once the old tables are gone.
std::string RebuildScript(const std::string& late_indexes) {
  return std::string(kRenameOldTables) + kCreateTables + CreateRebuiltIndexes() + sql::kReplaceDeleteTrigger +
         kCopyRows + kDropOldTables + late_indexes + "END;";
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
    return ForEachView(db(), [this](ViewId view) {
      return Check(Rebuild(view), "Failed to update view db for view %llu\n", view);
    });
  }

  // An index keeps its name when its table is renamed, so the first run of the index statements makes only
  // those with new names. The others come with the second run, of which the log does not tell.
  [[nodiscard]] bool Rebuild(ViewId view) {
    const std::string path = paths().ViewDatabase(view);
    const std::string script =
        AttachedScript("view_db", path, TuneStatements("view_db") + RebuildScript(CreateRebuiltIndexes()));
    db_util::Status status;
    (void)MakeIfMissing(path, paths().data);
    if (!script.empty()) {
      status = db_util::Execute(db(), script);
      if (status.ok()) return true;
    }
    const std::string logged = AttachedScript("view_db", path, RebuildScript({}));
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
