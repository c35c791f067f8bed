// 3200 to 3300: the activity log and its settings move from the data database to a log database of their own.
#include "updater/framework/attached_database.h"
#include "updater/framework/exec_sql.h"
#include "updater/server/maintenance.h"
#include "updater/server/sql/log_table.h"
#include "updater/server/updaters.h"

namespace updater::server {
namespace {

constexpr const char* kSetJournal =
    "PRAGMA log_db.journal_mode = WAL;"
    "PRAGMA log_db.synchronous = NORMAL;";

// "earlist_time" is how the server spells it. The settings are looked up with LIKE, and one that is missing
// becomes NULL.
constexpr const char* kCreateConfig =
    "CREATE TABLE IF NOT EXISTS log_db.config_table (    "
    "key       VARCHAR PRIMARY KEY ON CONFLICT REPLACE,    value     VARCHAR DEFAULT '' );"
    "INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('version', '3300');"
    "INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('branch', 'master');"
    "INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('min_index', '0');"
    "INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('earlist_time', '0');"
    "INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('use_log_del_cnt', "
    "(SELECT value FROM data_db.config_table WHERE key like 'use_log_del_cnt'));"
    "INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('log_del_cnt', "
    "(SELECT value FROM data_db.config_table WHERE key like 'log_del_cnt'));"
    "INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('use_log_del_span', "
    "(SELECT value FROM data_db.config_table WHERE key like 'use_log_del_span'));"
    "INSERT OR REPLACE INTO log_db.config_table (key, value) VALUES ('log_del_span', "
    "(SELECT value FROM data_db.config_table WHERE key like 'log_del_span'));";

constexpr const char* kMoveRows =
    "INSERT INTO log_db.log_table SELECT * FROM data_db.log_table;"
    "DROP TABLE data_db.log_table;"
    "DELETE FROM data_db.config_table WHERE key like 'use_log_del_cnt';"
    "DELETE FROM data_db.config_table WHERE key like 'log_del_cnt';"
    "DELETE FROM data_db.config_table WHERE key like 'use_log_del_span';"
    "DELETE FROM data_db.config_table WHERE key like 'log_del_span';";

class SvrUpdater3200to3300 final : public ServerUpdater {
 public:
  SvrUpdater3200to3300(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context, EarlyEdge({kMasterBranch, 3200}, {kMasterBranch, 3300}, DatabaseSet::kWithLog),
                      copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {{[this] { return UpdateDatabases(); }, "failed to update databases\n"}};
  }

  [[nodiscard]] bool UpdateDatabases() {
    const std::string tables = "BEGIN TRANSACTION; " + sql::CreateLogTable("log_db") + kCreateConfig;
    const std::string indexes = sql::CreateLogIndexes("log_db");
    const std::string end = "END TRANSACTION; ";
    // The log database gets its write-ahead log when it is closed. The indexes follow the rows: filled one
    // row at a time they took five times as long for a million rows.
    is_log_made_ = ExecScriptAs(db(), tables + kMoveRows + indexes + end,
                                kSetJournal + tables + indexes + kMoveRows + end) == 0;
    return is_log_made_;
  }

  // Gives the space of the log back, also after a failed run, whose result is known already. No use for a
  // database that the next updater replaces. Nobody hears of a failure, so it must be one that a journal
  // undoes.
  [[nodiscard]] bool AfterDisconnect() override {
    if (!SplitFollows()) (void)RunMaintenance(paths().data, "PRAGMA journal_mode = DELETE; ANALYZE; VACUUM;");
    return !is_log_made_ || AddLog(paths().log);
  }

  bool is_log_made_ = false;
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater3200to3300(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater3200to3300>(context, copies);
}

}  // namespace updater::server
