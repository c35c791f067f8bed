#include "updater/server/svr_updater_3004to3200.h"

#include "file-op/file_op.h"
#include "updater/server/sql/log_table.h"
#include "updater/server/sql/rebuild.h"

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

// A node takes over the version that has its own sync_id; without one its v_ columns stay NULL.
constexpr const char* kRebuildNodeTable =
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
    "LEFT JOIN data_db.version_table as v ON (n.node_id = v.node_id AND n.sync_id = v.sync_id);"

    "DROP TABLE data_db.node_table;"
    "ALTER TABLE data_db.new_node_table RENAME TO node_table;"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_node_id_index ON node_table (node_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_parent_id_index ON node_table (parent_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_view_id_index ON node_table (view_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_attribute_index ON node_table (attribute);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_max_id_index ON node_table (max_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_sync_id_index ON node_table (sync_id);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_name_index ON node_table (name);"
    "CREATE INDEX IF NOT EXISTS data_db.node_table_path_index ON node_table (path);"
    "END TRANSACTION; ";

}  // namespace

SvrUpdater3004to3200::SvrUpdater3004to3200(const UpdaterContext& context, const std::string& sync_folder,
                                           const std::string& data, const std::string& user,
                                           const std::string& client)
    : EarlyUpdater(context, {kMasterBranch, 3004}, {kMasterBranch, 3200}, DatabaseSet::kWithoutLog,
                   {.data = data, .log = {}, .user = user, .client = client}),
      sync_folder_(sync_folder) {}

int SvrUpdater3004to3200::UpdateDatabases() {
  return RunSteps({
      {[this] { return CreateNodeDeltaFolder(); }, "UpdateDatabases: CreateNodeDeltaFolder failed\n"},
      {[this] { return UpdateDatabaseSchema(); }, "UpdateDatabases: UpdateDatabaseSchema failed\n"},
      {[this] { return UpdateRedundantNodeTable(); }, "UpdateDatabases: UpdateRedundantNodeTable failed\n"},
  });
}

int SvrUpdater3004to3200::CreateNodeDeltaFolder() const {
  const std::string folder = sync_folder_ + "/node_delta";
  if (!logger::Succeeded(file_op::FSMKDir(folder, true), "failed to create node_delta folder\n")) return -1;
  return logger::Succeeded(CreateEmptyFile(folder + "/.0"), "failed to create empty file node_delta/.0\n")
             ? 0
             : -1;
}

int SvrUpdater3004to3200::UpdateDatabaseSchema() const {
  return db_util::ExecScript(db(), "BEGIN TRANSACTION; " + sql::CreateLogTable("data_db") +
                                       sql::CreateLogIndexes("data_db") + kAddConfigRows +
                                       kCreateProfileTables + "END TRANSACTION; ");
}

int SvrUpdater3004to3200::UpdateRedundantNodeTable() const {
  return sql::ExecRebuild(db(), kRebuildNodeTable);
}

}  // namespace updater::server
