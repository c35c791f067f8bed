#include "updater/volume_upgrade.h"

#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <ostream>

#include "db-util/database.h"
#include "db-util/query.h"
#include "file-op/file_op.h"
#include "logger/log_sink.h"
#include "updater/placement.h"
#include "updater/working_copies.h"

namespace updater {
namespace {

constexpr std::array kLegacyStepsBeforeClientCopy = {1, 3, 4, 5, 6};
constexpr std::array kLegacyStepsAfterClientCopy = {7, 8, 9, 10, 11};

// The number in config_table, however large it is; 0 without a row, -1 after a failure, which counts as an
// old version.
long long ReadDatabaseVersion(sqlite3* db) {
  long long version = 0;
  const db_util::QueryResult result = db_util::ForEachRow(
      db, "SELECT value FROM config_table WHERE key = 'version';", [&version](sqlite3_stmt* row) {
        version = sqlite3_column_int64(row, 0);
        return false;
      });
  if (result.ok()) return version;
  if (result.failed_at == db_util::QueryResult::Stage::kPrepare) {
    logger::SystemLog("sqlite3_prepare_v2: %s (%d)\n", result.message, result.code);
  } else {
    logger::SystemLog("sqlite3_step: %s (%d)\n", result.message, result.code);
  }
  return -1;
}

using BackupOperation = int (*)(const std::string&, const std::string&);
using BackupMessage = logger::PrintfFormat<std::string, std::string>;

int CopyOrLog(BackupOperation backup, const std::string& live, const std::string& copy,
              const BackupMessage& failure) {
  if (backup(live, copy) >= 0) return 0;
  logger::SystemLog<std::string, std::string>(failure, live, copy);
  return -1;
}

int CopyIfThere(BackupOperation backup, const std::string& live, const std::string& copy,
                const BackupMessage& failure) {
  return file_op::FSExists(live) ? CopyOrLog(backup, live, copy, failure) : 0;
}

}  // namespace

VolumeUpgrade::VolumeUpgrade(RunPaths paths, bool with_legacy_steps, const RunDependencies& dependencies)
    : paths_(std::move(paths)),
      temporary_(paths_.temporary_folder),
      with_legacy_steps_(with_legacy_steps),
      dependencies_(dependencies) {}

VolumeUpgrade::Result VolumeUpgrade::Run() {
  if (access(paths_.data_db.c_str(), F_OK) != 0) return Result::kNothingToDo;
  if (IsNewerOrCannotBeOpened()) {
    logger::SystemLog("exist db is newer than package");
    return Result::kNewer;
  }
  temporary_.MakeIfMissing();
  if (MakeWorkingCopies() < 0 || RunUpdaters() < 0 || PreparePlacement(paths_) < 0) return Result::kFailed;
  PlaceWorkingCopies(paths_);
  return Result::kUpgraded;
}

bool VolumeUpgrade::IsNewerOrCannotBeOpened() const {
  db_util::Database db;
  if (db_util::OpenDatabase(paths_.data_db, db, db_util::OpenMode::kReadWrite) < 0) return true;
  // Looking at the version must not change anything. A write-ahead log that is there stays as it is, where
  // closing would move it into the file; one that only this connection makes goes again.
  const char* const file = sqlite3_db_filename(db.get(), "main");
  const std::string index = std::string(file) + "-shm";
  const bool has_log = file_op::FSExists(sqlite3_filename_wal(file));
  const bool makes_index = has_log && !file_op::FSExists(index);  // one that is there may be in use
  const bool can_write = sqlite3_db_readonly(db.get(), "main") == 0;
  if (has_log)
    (void)sqlite3_db_config(db.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);  // cannot fail
  // An index of the log would stay as well; whoever has the database for itself keeps it in memory.
  if (makes_index && can_write) {
    std::string ignored;  // without it, only the index stays
    (void)db_util::Execute(db.get(), "PRAGMA locking_mode = EXCLUSIVE;", ignored);
  }
  const long long version = ReadDatabaseVersion(db.get());
  db.reset();
  // A file that cannot be written, as one that is immutable, cannot be locked that way.
  if (makes_index && !can_write) (void)unlink(index.c_str());
  if (version <= kTargetVersion) return false;
  logger::SystemLog("exist db is newer, exist: %lld, target: %d", version, kTargetVersion);
  return true;
}

int VolumeUpgrade::MakeWorkingCopies() {
  if (SettleFormerCopies(paths_) < 0) return -1;
  if (CopyOrLog(BackupDatabaseFile, paths_.user_db, paths_.user_copy, "cannot backup db from %s to %s") < 0 ||
      CopyOrLog(BackupDatabaseFile, paths_.data_db, paths_.data_copy, "cannot backup db from %s to %s") < 0) {
    return -1;
  }
  if (with_legacy_steps_ && RunLegacySteps() < 0) return -1;
  return CopyRemaining();
}

int VolumeUpgrade::RunLegacySteps() {
  const legacy::LegacyPaths legacy_paths = {.data = paths_.data_copy,
                                            .user = paths_.user_copy,
                                            .client = paths_.client_copy,
                                            .client_sync_folder = paths_.client_sync_folder,
                                            .volume = paths_.volume};
  const auto run = [&](const std::array<int, 5>& steps) {
    for (const int step : steps) {
      if (dependencies_.legacy.RunStep(step, legacy_paths) >= 0) continue;
      logger::SystemLog("Update V%d Fail", step);
      return -1;
    }
    return 0;
  };
  if (run(kLegacyStepsBeforeClientCopy) < 0) return -1;
  if (CopyOrLog(BackupDatabaseFile, paths_.client_db, paths_.client_copy, "cannot backup from %s to %s.") <
      0) {
    return -1;
  }
  return run(kLegacyStepsAfterClientCopy);
}

// A part of the package that is not there is skipped. The client database is copied here also when the legacy
// steps have worked on an earlier copy of it, which this one replaces; keep it so.
int VolumeUpgrade::CopyRemaining() {
  if (CopyIfThere(BackupDatabaseFile, paths_.log_db, paths_.log_copy, "cannot backup from %s to %s.") < 0 ||
      CopyIfThere(BackupViewFolder, paths_.view_folder, paths_.view_copy,
                  "cannot backup view from %s to %s.") < 0 ||
      CopyIfThere(BackupDatabaseFile, paths_.client_db, paths_.client_copy, "cannot backup from %s to %s.") <
          0) {
    return -1;
  }
  return CopyIfThere(BackupFileFolder, paths_.file_folder, paths_.file_copy,
                     "cannot backup file from %s to %s.");
}

int VolumeUpgrade::RunUpdaters() {
  UpdaterFramework framework(dependencies_.out, dependencies_.observer);
  const UpdaterContext context = {dependencies_.paths.scratch_database, dependencies_.out,
                                  dependencies_.platform};
  for (auto& updater : server::CreateServerUpdaters(context, paths_.ForUpdaters())) {
    framework.AddUpdater(std::move(updater));
  }
  Version current;
  if (UpdaterFramework::GetCurrentVersion(paths_.data_copy, current) < 0) {
    logger::SystemLog("Updater Cannot get database version");
    return -1;
  }
  const Version target = {kMasterBranch, kTargetVersion};
  dependencies_.out << "update from " << current << "to " << target << std::endl;
  if (framework.Run(current, target) == 0) return 0;
  logger::SystemLog("UpdaterFramework: %s", framework.GetLastError());
  dependencies_.err << framework.GetLastError() << std::endl;
  return -1;
}

}  // namespace updater
