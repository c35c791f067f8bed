#include "updater/volume_upgrade.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <tuple>

#include "db-util/database.h"
#include "db-util/query.h"
#include "file-op/file_op.h"
#include "logger/log_sink.h"
#include "updater/free_space.h"
#include "updater/placement.h"
#include "updater/server/registration.h"
#include "updater/working_copies.h"

namespace updater {
namespace {

using logger::CheckOrLog;

constexpr std::array kLegacyStepsBeforeClientCopy = {1, 3, 4, 5, 6};
constexpr std::array kLegacyStepsAfterClientCopy = {7, 8, 9, 10, 11};

// The number in config_table, however large it is; 0 without a row, -1 after a failure, which counts as an
// old version.
long long ReadDatabaseVersion(sqlite3* db) {
  sqlite3_int64 version = 0;
  const db_util::Status status =
      db_util::QueryInt(db, "SELECT value FROM config_table WHERE key = 'version';", version);
  return CheckOrLog(status, "%s: %s (%d)\n", status.FailedCall(), status.message, status.code) ? version : -1;
}

// A journal with content is there after a process was killed in the middle of a transaction.
bool HasJournal(sqlite3* db) {
  struct stat status {};
  return stat(sqlite3_filename_journal(sqlite3_db_filename(db, "main")), &status) == 0 && status.st_size > 0;
}

// The version as ReadDatabaseVersion() tells it, of a database that has no such journal.
long long Look(db_util::Database db) {
  // Looking at the version must not change anything. A write-ahead log that is there stays as it is, although
  // closing usually moves it into the file. One that only this connection makes goes again.
  const char* const file = sqlite3_db_filename(db.get(), "main");
  const std::string index = std::string(file) + "-shm";
  const bool has_log = file_op::FSExists(sqlite3_filename_wal(file));
  const bool makes_index = has_log && !file_op::FSExists(index);  // one that is there may be in use
  const bool can_write = sqlite3_db_readonly(db.get(), "main") == 0;
  if (has_log)
    (void)sqlite3_db_config(db.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);  // cannot fail
  // SQLite would leave an index of the log, too. A connection that has the database for itself keeps the
  // index in memory.
  if (makes_index && can_write) db_util::UseAlone(db.get());
  const long long version = ReadDatabaseVersion(db.get());
  db.reset();
  // SQLite gives exclusive use only of a database that can be written. Of any other the index is removed
  // here.
  if (makes_index && !can_write) (void)unlink(index.c_str());
  return version;
}

// SQLite would roll the journal back in the live file, and believes whatever size a damaged one tells. A copy
// that cannot be made here cannot be made later either, and that is the failure to be told.
long long LookAtCopy(const package::VolumePaths& paths) {
  long long version = -1;
  db_util::Database db;
  if (BackupDatabaseFile(paths.live.data, paths.copies.data) == 0 &&
      db_util::OpenQuietly(paths.copies.data, db, db_util::OpenMode::kReadWrite, db_util::Links::kTrusted)
          .ok()) {
    version = ReadDatabaseVersion(db.get());
  }
  db.reset();
  (void)RemoveDatabaseFiles(paths.copies.data);  // what stays is replaced by the copy of the upgrade
  return version;
}

using BackupOperation = int (*)(const std::string&, const std::string&);
using BackupMessage = logger::PrintfFormat<std::string, std::string>;

bool Copy(BackupOperation backup, const std::string& live, const std::string& copy,
          const BackupMessage& failure) {
  return CheckOrLog<int, std::string, std::string>(backup(live, copy), failure, live, copy);
}

bool CopyIfThere(BackupOperation backup, const std::string& live, const std::string& copy,
                 const BackupMessage& failure) {
  // One that the disk does not tell of must not be left out: the attempt to copy it fails.
  return file_op::Find(file_op::At(live)) == 0 || Copy(backup, live, copy, failure);
}

// Whatever comes of it: SQLite says only that it cannot open a file.
void WarnOfLongPaths(const package::VolumePaths& paths) {
  constexpr std::size_t kUuid = 36;
  const std::size_t longest =
      paths.copies.FileDatabase(std::string(kUuid, '?')).size() + sizeof("-journal") - 1;
  const int limit = sqlite3_vfs_find(nullptr)->mxPathname;
  if (longest <= static_cast<std::size_t>(limit)) return;
  logger::SystemLog(
      "the path of the volume is too long: files below it need up to %zu bytes, SQLite takes %d\n", longest,
      limit);
}

}  // namespace

VolumeUpgrade::VolumeUpgrade(package::VolumePaths paths, bool with_legacy_steps,
                             const RunDependencies& dependencies)
    : paths_(std::move(paths)),
      temporary_(paths_.temporary_folder),
      with_legacy_steps_(with_legacy_steps),
      dependencies_(dependencies) {}

VolumeUpgrade::Result VolumeUpgrade::Run() {
  if (FinishFormerPlacement(paths_) < 0) return Result::kFailed;
  if (access(paths_.live.data.c_str(), F_OK) != 0) return Result::kNothingToDo;
  LogFreeSpace(paths_);
  WarnOfLongPaths(paths_);
  if (IsNewerOrCannotBeOpened()) {
    logger::SystemLog("exist db is newer than package");
    return Result::kNewer;
  }
  temporary_.MakeIfMissing();
  FileSystems file_systems;
  file_systems.Open(paths_);
  BeginPhase(Phase::kCopies);
  if (!MakeWorkingCopies()) return Result::kFailed;
  BeginPhase(Phase::kUpdaters);
  if (!RunChain()) return Result::kFailed;
  BeginPhase(Phase::kPlacing);
  if (PreparePlacement(paths_, file_systems) < 0) return Result::kFailed;
  PlaceWorkingCopies(paths_, file_systems);
  return Result::kUpgraded;
}

bool VolumeUpgrade::IsNewerOrCannotBeOpened() const {
  db_util::Database db;
  if (db_util::OpenDatabase(paths_.live.data, db, db_util::OpenMode::kReadWrite) < 0) return true;
  const long long version = HasJournal(db.get()) ? LookAtCopy(paths_) : Look(std::move(db));
  if (version <= package::kCurrentVersion) return false;
  logger::SystemLog("exist db is newer, exist: %lld, target: %d", version, package::kCurrentVersion);
  return true;
}

bool VolumeUpgrade::MakeWorkingCopies() {
  const auto& [live, copies] = std::tie(paths_.live, paths_.copies);
  return RemoveStaleCopies(paths_) == 0 &&
         Copy(BackupDatabaseFile, live.user, copies.user, "cannot backup db from %s to %s") &&
         Copy(BackupDatabaseFile, live.data, copies.data, "cannot backup db from %s to %s") &&
         (!with_legacy_steps_ || RunLegacySteps()) && CopyRemaining();
}

bool VolumeUpgrade::RunLegacySteps() {
  const auto run = [this](const std::array<int, 5>& steps) {
    return std::all_of(steps.begin(), steps.end(), [this](int step) {
      return CheckOrLog(dependencies_.legacy.RunStep(step, paths_), "Update V%d Fail", step);
    });
  };
  return run(kLegacyStepsBeforeClientCopy) &&
         Copy(BackupDatabaseFile, paths_.live.client, paths_.copies.client, "cannot backup from %s to %s.") &&
         run(kLegacyStepsAfterClientCopy);
}

// A part of the package that is not there is skipped. The client database is copied here also when the legacy
// steps have worked on an earlier copy of it, which this one replaces; keep it so.
bool VolumeUpgrade::CopyRemaining() {
  const auto& [live, copies] = std::tie(paths_.live, paths_.copies);
  return CopyIfThere(BackupDatabaseFile, live.log, copies.log, "cannot backup from %s to %s.") &&
         CopyIfThere(BackupViewFolder, live.view_folder, copies.view_folder,
                     "cannot backup view from %s to %s.") &&
         CopyIfThere(BackupDatabaseFile, live.client, copies.client, "cannot backup from %s to %s.") &&
         CopyIfThere(BackupFileFolder, live.file_folder, copies.file_folder,
                     "cannot backup file from %s to %s.");
}

bool VolumeUpgrade::RunChain() {
  UpdaterFramework framework(dependencies_.out, dependencies_.observer);
  const UpdaterContext context = {dependencies_.paths.scratch_database, dependencies_.out,
                                  dependencies_.platform};
  for (auto& updater : server::CreateServerUpdaters(context, paths_.copies)) {
    framework.AddUpdater(std::move(updater));
  }
  Version current;
  if (!CheckOrLog(UpdaterFramework::GetCurrentVersion(paths_.copies.data, current),
                  "Updater Cannot get database version")) {
    return false;
  }
  const Version target = {package::kCurrentBranch, package::kCurrentVersion};
  dependencies_.out << "update from " << current << "to " << target << std::endl;
  if (framework.Run(current, target) == 0) return true;
  logger::SystemLog("UpdaterFramework: %s", framework.GetLastError());
  dependencies_.err << framework.GetLastError() << std::endl;
  return false;
}

}  // namespace updater
