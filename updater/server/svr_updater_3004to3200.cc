// 3004 to 3200: the node delta folder, the activity log, user profiles, and nodes that carry the columns of
// their current version.
#include "file-op/file_op.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"
#include "updater/server/marker_files.h"
#include "updater/server/sql/log_table.h"
#include "updater/server/sql/rebuild.h"
#include "updater/server/updaters.h"

namespace updater::server {
namespace {

constexpr const char* kAddConfigRows =
    "INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('node_delta_file_id', '1');"
    "INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('remove_repo', '0');"
    "INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('use_log_del_cnt', '1');"
    "INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('log_del_cnt', '1000000');"
    "INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('use_log_del_span', '1');"
    "INSERT OR IGNORE INTO data_db.config_table (key, value) VALUES ('log_del_span', '2592000');";

// "INTEGAR" is how every installed schema spells it.
constexpr const char* kCreateProfileTables =
    "CREATE TABLE IF NOT EXISTS user_db.profile_table (id INTEGER PRIMARY KEY AUTOINCREMENT, "
    "name VARCHAR NOT NULL, context VARCHAR NOT NULL DEFAULT '{}');"
    "CREATE TABLE IF NOT EXISTS user_db.profile_apply_table (profile_id INTEGER, user_id INTEGAR, "
    "PRIMARY KEY (profile_id, user_id) ON CONFLICT IGNORE);"
    "CREATE INDEX IF NOT EXISTS user_db.profile_id_idx ON profile_table(id);"
    "CREATE INDEX IF NOT EXISTS user_db.profile_apply_id_idx ON profile_apply_table(profile_id);"
    "CREATE INDEX IF NOT EXISTS user_db.profile_apply_uid_idx ON profile_apply_table(user_id);";

// By the name that the package gives it; many installed databases have it.
constexpr const char* kIndexVersions =
    "CREATE INDEX IF NOT EXISTS data_db.version_table_node_id_index ON version_table (node_id);";

// A node takes over the version that has its own sync_id; without one its v_ columns stay NULL.
constexpr const char* kCopyNodes =
    "BEGIN TRANSACTION; "
    "CREATE TABLE IF NOT EXISTS data_db.new_node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, "
    "parent_id INTEGER, view_id INTEGER, attribute INTEGER, max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER, "
    "ctime DATETIME DEFAULT (strftime('%s','now')), mtime DATETIME DEFAULT (strftime('%s','now')), "
    "name VARCHAR NOT NULL COLLATE NOCASE, path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL, "
    "v_base_id INTEGER, v_file_id INTEGER, v_file_size INTEGER, v_file_hash VARCHAR(40), v_mtime DATETIME, "
    "v_exec_bit INTEGER, v_uid INTEGER, v_gid INTEGER, v_mode INTEGER, v_sess_id INTEGER, "
    "v_client_id VARCHAR, v_mac_attr BLOB DEFAULT NULL, "
    "v_acl_attribute TEXT DEFAULT NULL, v_acl_hash TEXT DEFAULT NULL, "
    "v_share_priv_disabled INTEGER DEFAULT 0, v_share_priv_deny_list TEXT DEFAULT '', "
    "v_share_priv_ro_list TEXT DEFAULT '', v_share_priv_rw_list TEXT DEFAULT '', "
    "v_share_priv_hash TEXT DEFAULT '', node_delta_file_id INTEGER);"

    "INSERT INTO data_db.new_node_table SELECT n.node_id, n.parent_id, n.view_id, n.attribute, n.max_id, "
    "n.sync_id, n.ver_cnt, n.ctime, n.mtime, n.name, n.path, n.data, v.base_id, v.file_id, v.file_size, "
    "v.file_hash, v.mtime, v.exec_bit, v.uid, v.gid, v.mode, v.sess_id, v.client_id, v.mac_attr, "
    "v.acl_attribute, v.acl_hash, v.share_priv_disabled, v.share_priv_deny_list, v.share_priv_ro_list, "
    "v.share_priv_rw_list, v.share_priv_hash, 0 FROM data_db.node_table as n "
    "LEFT JOIN data_db.version_table as v ON (n.node_id = v.node_id AND ";
// The sign keeps SQLite from looking versions up by their sync_id, which any number of them may share.
constexpr const char* kStoredSyncId = "n.sync_id = v.sync_id);";
constexpr const char* kStoredSyncIdNotLookedUp = "+(n.sync_id = v.sync_id));";
constexpr const char* kReplaceNodeTable =
    "DROP TABLE data_db.node_table;"
    "ALTER TABLE data_db.new_node_table RENAME TO node_table;";
constexpr const char* kCreateNodeIndexes =
    "CREATE INDEX IF NOT EXISTS data_db.node_table_node_id_index ON node_table (node_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_parent_id_index ON node_table (parent_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_view_id_index ON node_table (view_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_attribute_index ON node_table (attribute);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_max_id_index ON node_table (max_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_sync_id_index ON node_table (sync_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_name_index ON node_table (name);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_path_index ON node_table (path);";

class SvrUpdater3004to3200 final : public ServerUpdater {
 public:
  SvrUpdater3004to3200(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context,
                      EarlyEdge({kMasterBranch, 3004}, {kMasterBranch, 3200}, DatabaseSet::kWithoutLog),
                      copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {{[this] { return UpdateDatabases(); }, "failed to update databases\n"}};
  }

  [[nodiscard]] bool UpdateDatabases() {
    return Check(CreateNodeDeltaFolder(), "UpdateDatabases: CreateNodeDeltaFolder failed\n") &&
           Check(UpdateDatabaseSchema(), "UpdateDatabases: UpdateDatabaseSchema failed\n") &&
           Check(UpdateRedundantNodeTable(), "UpdateDatabases: UpdateRedundantNodeTable failed\n");
  }

  [[nodiscard]] bool CreateNodeDeltaFolder() {
    const std::string folder = paths().sync_folder + "/node_delta";
    return Check(file_op::FSMKDir(folder, true), "failed to create node_delta folder\n") &&
           Check(CreateEmptyFile(folder + "/.0"), "failed to create empty file node_delta/.0\n");
  }

  [[nodiscard]] bool UpdateDatabaseSchema() {
    return ExecScript(db(), "BEGIN TRANSACTION; " + sql::CreateLogTable("data_db") +
                                sql::CreateLogIndexes("data_db") + kAddConfigRows + kCreateProfileTables +
                                "END TRANSACTION; ") == 0;
  }

  [[nodiscard]] static std::string RebuildScript(const char* sync_id, const char* indexes) {
    return std::string(kCopyNodes) + sync_id + kReplaceNodeTable + indexes + "END TRANSACTION; ";
  }

  // Without an index SQLite would make one of its own, of whole versions. The split makes those that it
  // needs.
  [[nodiscard]] bool UpdateRedundantNodeTable() {
    if (SplitFollows() && ExecForSpeed(db(), kIndexVersions) < 0) return false;
    return sql::ExecRebuild(db(),
                            RebuildScript(kStoredSyncIdNotLookedUp, SplitFollows() ? "" : kCreateNodeIndexes),
                            RebuildScript(kStoredSyncId, kCreateNodeIndexes));
  }
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater3004to3200(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater3004to3200>(context, copies);
}

}  // namespace updater::server
