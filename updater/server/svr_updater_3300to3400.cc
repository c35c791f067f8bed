// 3300 to 3400: splits the data database into one view database per view, one file database for the home
// volume, and a small new data database that takes the old one's place.
//
// The views are split by several threads, see ViewSplit. Beside them another one makes the indexes of the
// files. The frame is disconnected meanwhile, because nobody else may have the data database open; it
// attaches all databases again, in their order, which decides on tables that stand in several of them.
#include <unistd.h>

#include <cstdio>

#include "db-util/checkpoint.h"
#include "db-util/database_files.h"
#include "db-util/execute.h"
#include "db-util/log_mode.h"
#include "db-util/query.h"
#include "file-op/file_op.h"
#include "platform/sdk/volume_uuid.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/background_work.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"
#include "updater/framework/views.h"
#include "updater/server/new_databases.h"
#include "updater/server/split_preparation.h"
#include "updater/server/sql/split.h"
#include "updater/server/updaters.h"
#include "updater/server/view_split.h"

namespace updater::server {
namespace {

constexpr const char* kNewDataDatabaseName = "/new-syncfolder.sqlite";

// For removal that the server defers. Their parent is not made here.
constexpr const char* kRemovalFolders[] = {"/file",       "/delta",       "/node_delta",
                                           "/deref_file", "/rotate_node", "/rotate_base"};

constexpr const char* kUpdateUserDatabase =
    "INSERT OR REPLACE INTO user_db.config_table (key, value) VALUES \t"
    "('view_id', (CASE WHEN (SELECT MAX(view_id) FROM user_table) IS NOT NULL THEN \t\t"
    "((SELECT MAX(view_id) FROM user_table) + 1) ELSE 1 END));"
    "CREATE TABLE IF NOT EXISTS user_db.customized_rotate_cnt_table "
    "(\tview_id\t\tINTEGER PRIMARY KEY ON CONFLICT REPLACE,    rotate_cnt\tINTEGER );";

// SQLite's MAX() takes a text for larger than every number, and one added to a text is one more than its
// first digits. Without this, the next view id could be one that a user has.
constexpr const char* kRepairNextViewId =
    "UPDATE user_db.config_table SET value = (SELECT MAX(CAST(view_id AS INTEGER)) + 1 FROM user_db.user_table) "
    "WHERE key = 'view_id' AND (SELECT typeof(MAX(view_id)) FROM user_db.user_table) IN ('text', 'blob');";

constexpr const char* kInsertDaemonSyncId =
    "INSERT INTO client_db.config_table (key, value) VALUES \t"
    "('sync_id_syncd', (SELECT value FROM data_db.config_table WHERE key = 'sync_id')); ";
constexpr const char* kInsertViewSyncId =
    "INSERT INTO client_db.config_table (key, value) VALUES ('sync_id_view_%llu', \t"
    "(CASE WHEN (SELECT sync_id FROM %s WHERE view_id = %lld) IS NOT NULL THEN \t\t"
    "(SELECT sync_id FROM %s WHERE view_id = %lld) \t\t"
    "ELSE (SELECT value FROM client_db.config_table WHERE key = 'sync_id') END)); ";

// progress_table has no index, and every view looks into it twice. Of several rows with one view id the first
// counts. Where this fails, or numbers are not stored as numbers, the table itself is read.
constexpr const char* kProgressTable = "progress_table";
constexpr const char* kIndexedProgressTable = "temp.first_progress_table";
constexpr const char* kHasNumbers =
    "SELECT count(*) FROM pragma_table_info('progress_table') WHERE name = 'view_id' AND type LIKE '%int%';";
constexpr const char* kIndexProgress =
    "CREATE TEMP TABLE first_progress_table (view_id INTEGER UNIQUE ON CONFLICT IGNORE, sync_id);"
    "INSERT INTO temp.first_progress_table SELECT view_id, sync_id FROM progress_table ORDER BY rowid;";

class SvrUpdater3300to3400 final : public ServerUpdater {
 public:
  SvrUpdater3300to3400(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context,
                      {.from = {kMasterBranch, 3300},
                       .to = {kMasterBranch, 3400},
                       .databases = DatabaseSet::kWithLog,
                       .scope = VersionScope::kFour,
                       .success = SuccessLine::kStandardOutput},
                      copies),
        new_data_database_(copies.sync_folder + kNewDataDatabaseName) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {
        {[this] { return RefuseLostNodes(db()); }, "failed to update databases\n"},
        {[this] { return CreateFolders(); }, "failed to create new db and rotate folders\n"},
        {[this] { return SplitDatabases(); }, "failed to update databases\n"},
    };
  }

  [[nodiscard]] static bool MakeEmptyFolder(const std::string& path);
  [[nodiscard]] bool CreateFolders() const;

  [[nodiscard]] bool SplitDatabases();
  [[nodiscard]] bool SplitViews();
  [[nodiscard]] bool SplitDisconnected(const std::vector<ViewId>& views, std::size_t threads) const;
  [[nodiscard]] bool FillFiles() const;
  [[nodiscard]] bool FinishFiles() const;
  [[nodiscard]] bool AttachFiles(sqlite3* db) const;
  [[nodiscard]] bool RunForFiles(sqlite3* db, const std::string& part) const;
  [[nodiscard]] bool UpdateUserDatabase() const;

  [[nodiscard]] bool ReplaceDataDatabase() const;
  [[nodiscard]] bool FillNewDataDatabase() const;
  [[nodiscard]] bool InsertViewSyncIds() const;
  [[nodiscard]] static bool FormatViewSyncIds(const std::vector<ViewId>& views, const char* progress_table,
                                              std::string& script);
  [[nodiscard]] bool ReattachDataDatabase() const;
  [[nodiscard]] bool MoveNewDataDatabase() const;

  std::string new_data_database_;
  std::string home_uuid_;  // of the volume that holds the sync folder; known from the start of the split
};

bool SvrUpdater3300to3400::MakeEmptyFolder(const std::string& path) {
  (void)file_op::FSRemoveTree(path, 0);  // a folder that stays makes the creation of its databases fail
  return MakeFolder(path);
}

bool SvrUpdater3300to3400::CreateFolders() const {
  if (!MakeEmptyFolder(paths().view_folder) || !MakeEmptyFolder(paths().file_folder)) return false;
  for (const char* folder : kRemovalFolders) {
    if (!MakeFolder(paths().sync_folder + package::kRemovalFolder + folder)) return false;
  }
  return true;
}

// The files are made beside the views, and are told of after them.
bool SvrUpdater3300to3400::SplitDatabases() {
  if (!Check(platform::sdk::GetVolumeUuid(platform().volumes, paths().sync_folder, home_uuid_),
             "Cannot get home volume uuid (%s)\n", paths().sync_folder)) {
    return false;
  }
  BackgroundWork finishing;
  const Outcome filled = HoldBack([this] { return FillFiles(); });
  if (filled.went_well) finishing.Start([this] { return FinishFiles(); });
  return SplitViews() && Tell(filled) && finishing.Finish() &&
         Check(UpdateUserDatabase(), "Failed to update user db config_table\n") &&
         Check(ReplaceDataDatabase(), "Failed to update data db\n");
}

bool SvrUpdater3300to3400::SplitViews() {
  std::vector<ViewId> views;
  // Connections that use their databases alone, as all of an updater do, cannot share one that has a log.
  const bool is_alone = db_util::LogModeOf(db(), "data_db") == db_util::LogMode::kInUse;
  if (!ReadViewIds(db(), views)) return false;
  Detach();
  const bool is_split = SplitDisconnected(views, is_alone ? 1 : ThreadCount());
  // The end of a failed updater, too, expects all of its databases.
  return Check(Connect(), "failed to connect to databases\n") && is_split;
}

// Threads share the memory, of which very large rows may need all. One alone has enough.
bool SvrUpdater3300to3400::SplitDisconnected(const std::vector<ViewId>& views, std::size_t threads) const {
  const ViewSplit split(paths(), home_uuid_, ViewsAreNew());
  const Outcome outcome = HoldBack([&] { return split.Run(views, threads); });
  const bool begins_anew = split.lacks_memory() && file_op::FSRemoveTree(paths().view_folder, 0) == 0 &&
                           MakeFolder(paths().view_folder);
  return begins_anew ? split.Run(views, 1) : Tell(outcome);
}

bool SvrUpdater3300to3400::FillFiles() const {
  return Check(CreateFileDatabase(paths(), home_uuid_, paths().data),
               "Failed to create new file db for home_uuid %s\n", home_uuid_) &&
         AttachFiles(db()) && RunForFiles(db(), sql::kCopyFileRows) &&
         Check(ExecScript(db(), "DETACH DATABASE file_db;"),
               "Failed to detach new file db for home_uuid %s\n", home_uuid_);
}

bool SvrUpdater3300to3400::FinishFiles() const {
  db_util::Database own;
  return Check(OpenEmpty(own), "Failed to attach new file db for home_uuid %s\n", home_uuid_) &&
         AttachFiles(own.get()) && RunForFiles(own.get(), CreateFileIndexes());
}

bool SvrUpdater3300to3400::AttachFiles(sqlite3* db) const {
  return Check(AttachDatabase(db, "file_db", paths().FileDatabase(home_uuid_)),
               "Failed to attach new file db for home_uuid %s\n", home_uuid_);
}

bool SvrUpdater3300to3400::RunForFiles(sqlite3* db, const std::string& part) const {
  const db_util::Status status = db_util::Execute(db, InTransaction(part));
  // A transaction that stays would keep its databases attached.
  if (sqlite3_get_autocommit(db) == 0) (void)ExecScript(db, "ROLLBACK;");
  if (CheckScript(status, sql::kCopyFileRows)) return true;
  (void)Check(false, "Failed to dump record from data_db to file_db for home_uuid %s\n", home_uuid_);
  return Check(false, "Failed to update file db for home_uuid %s\n", home_uuid_);
}

bool SvrUpdater3300to3400::UpdateUserDatabase() const {
  return ExecScriptAs(db(), std::string(kUpdateUserDatabase) + kRepairNextViewId, kUpdateUserDatabase) == 0;
}

bool SvrUpdater3300to3400::ReplaceDataDatabase() const {
  return Check(CreateNewDataDatabase(new_data_database_, paths().data), "Failed to CreateNewDataDB\n") &&
         Check(FillNewDataDatabase(), "Failed to FillNewDataDB\n") &&
         Check(InsertViewSyncIds(), "Failed to InsertViewSyncId\n") &&
         Check(ReattachDataDatabase(), "Failed to ReattachDataDB\n");
}

bool SvrUpdater3300to3400::FillNewDataDatabase() const {
  return Check(AttachDatabase(db(), "new_data_db", new_data_database_),
               "Failed to attach new syncfolder-db.sqlite (%s)\n", new_data_database_) &&
         Check(ExecSql(db(), sql::kFillNewDataDatabase, home_uuid_, paths().sync_folder),
               "Cannot fill new syncfolder-db.sqlite (%s)\n", new_data_database_) &&
         Check(ExecScript(db(), "DETACH DATABASE new_data_db;"),
               "Failed to detach new syncfolder-db.sqlite (%s)\n", new_data_database_);
}

bool SvrUpdater3300to3400::InsertViewSyncIds() const {
  std::vector<ViewId> views;
  if (!ReadViewIds(db(), views)) return false;
  std::string logged;
  std::string script;
  int has_numbers = 0;
  const bool is_indexed = !views.empty() && db_util::QueryInt(db(), kHasNumbers, has_numbers).ok() &&
                          has_numbers == 1 && db_util::Execute(db(), kIndexProgress).ok();
  if (!FormatViewSyncIds(views, kProgressTable, logged) ||
      !FormatViewSyncIds(views, is_indexed ? kIndexedProgressTable : kProgressTable, script)) {
    return false;
  }
  script = InTransaction(script);
  return Check(ExecScriptAs(db(), script, logged), "Failed to insert view sync_id into client db\n");
}

bool SvrUpdater3300to3400::FormatViewSyncIds(const std::vector<ViewId>& views, const char* progress_table,
                                             std::string& script) {
  script = kInsertDaemonSyncId;
  for (const ViewId view : views) {
    std::string statement;
    const long long id = StoredId(view);
    if (!db_util::FormatSql(statement, kInsertViewSyncId, view, progress_table, id, progress_table, id)) {
      return false;
    }
    script += statement;
  }
  return true;
}

bool SvrUpdater3300to3400::ReattachDataDatabase() const {
  return Check(ExecScript(db(), "DETACH DATABASE data_db;"), "Failed to detach syncfolder-db for rename\n") &&
         Check(unlink(paths().data.c_str()), "Failed to unlink old syncfolder-db (%s)\n", paths().data) &&
         Check(MoveNewDataDatabase(), "Failed to rename syncfolder db '%s' -> '%s'\n", new_data_database_,
               paths().data) &&
         Check(AttachDatabase(db(), "data_db", paths().data),
               "Failed to attach syncfolder-db after rename\n");
}

// Neither of the two names may keep a companion file: it would be replayed into whatever stands there next.
bool SvrUpdater3300to3400::MoveNewDataDatabase() const {
  return db_util::CheckpointDatabase(new_data_database_) == 0 &&
         db_util::RemoveCompanions(paths().data) == 0 &&
         std::rename(new_data_database_.c_str(), paths().data.c_str()) == 0;
}

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater3300to3400(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater3300to3400>(context, copies);
}

}  // namespace updater::server
