#include "updater/server/new_databases.h"

#include <unistd.h>

#include <cerrno>

#include "base/errno.h"
#include "db-util/database.h"
#include "db-util/database_files.h"
#include "db-util/execute.h"
#include "file-op/file_op.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/updater_log.h"
#include "updater/server/sql/split.h"

namespace updater::server {
namespace {

using file_op::FilePlace;
using file_op::Folder;
using package::PackagePaths;

constexpr const char* kJournalPragmas = "PRAGMA journal_mode = WAL;PRAGMA synchronous = NORMAL;";

bool CheckFolder(int result, const std::string& path) {
  // Without the head of an updater's line; keep it so.
  return logger::CheckErrno(result, "mkdir(%s): %s (%d)\n", path);
}

// Opens the folder that is there, or a new one.
bool OpenFolder(const Folder& above, const std::string& name, Folder& out) {
  int result = out.MakeShared(above, name, file_op::kFolderMode);
  if (result < 0 && errno == EEXIST) result = out.Open(above.In(name));
  return CheckFolder(result, above.In(name).path);
}

// In the folder of all views or volumes, which is a working copy and so no link.
bool OpenFolderIn(const std::string& folder, const std::string& name, Folder& out) {
  Folder above;
  return CheckFolder(above.Open(file_op::At(folder)), folder + "/" + name) && OpenFolder(above, name, out);
}

bool MakeSignFile(const Folder& sign_folder) {
  if (file_op::MakeEmptyFile(sign_folder, ".0") == 0) return true;
  const base::Errno error = base::Errno::Last();
  // Without the head of an updater's line; keep it so.
  logger::SystemLog("fopen: %s (%d)\n", error.Text(), error.number());
  return false;
}

// With the owner and access bits of the data database from the start.
bool OpenNewDatabase(const FilePlace& place, const std::string& data_database, db_util::Database& out) {
  base::FileDescriptor made;
  const db_util::Status status =
      file_op::MakeFileLike(place, data_database, made) < 0
          ? db_util::StatusOf(SQLITE_CANTOPEN)
          : db_util::OpenExactly(place.path, made.get(), db_util::OpenMode::kReadWrite, out);
  if (status.ok()) db_util::UseAlone(out.get());
  return Check(status, "sqlite3_open: %s (%d)\n", status.message, status.code) &&
         sqlite3_busy_timeout(out.get(), db_util::kBusyTimeoutMs) == SQLITE_OK;
}

// The database is tuned twice. The first time keeps the change of the journal mode from flushing; the pragmas
// behind it set their own level of flushing, so it is tuned again. Only the caller's line tells what fails;
// keep it so.
bool InitializeDatabase(sqlite3* db, const std::string& script) {
  const std::string tune = TuneStatements("main");
  return db_util::Execute(db,
                          tune + kJournalPragmas + tune + "BEGIN TRANSACTION;" + script + "END TRANSACTION;")
      .ok();
}

bool CreateDatabase(const FilePlace& place, const std::string& data_database, const std::string& script,
                    const logger::PrintfFormat<>& failure) {
  db_util::Database db;
  return OpenNewDatabase(place, data_database, db) && Check(InitializeDatabase(db.get(), script), failure);
}

}  // namespace

bool MakeFolder(const std::string& path) { return CheckFolder(file_op::FSMKDir(path, false), path); }

bool CreateViewDatabase(const PackagePaths& paths, ViewId view, const std::string& data_database) {
  const std::string name = std::to_string(view);
  const std::string path = paths.ViewFolder(name);
  const std::string sign_path = path + "/sign";
  Folder folder;
  Folder sign_folder;
  return Check(OpenFolderIn(paths.view_folder, name, folder), "CreateViewDB: cannot make directory (%s)\n",
               path) &&
         Check(OpenFolder(folder, "sign", sign_folder), "CreateViewDB: cannot make directory (%s)\n",
               sign_path) &&
         Check(MakeSignFile(sign_folder), "CreateViewDB: cannot make origin sign file in (%s)\n",
               sign_path) &&
         CreateDatabase(folder.In(package::kViewDatabase), data_database, sql::kCreateViewDatabase,
                        "CreateViewDB: initialize view db failed\n");
}

bool CreateFileDatabase(const PackagePaths& paths, const std::string& uuid,
                        const std::string& data_database) {
  Folder folder;
  return Check(OpenFolderIn(paths.file_folder, uuid, folder), "CreateFileDB: cannot make directory (%s)\n",
               paths.FileFolder(uuid)) &&
         CreateDatabase(folder.In(package::kFileDatabase), data_database, sql::kCreateFileDatabase,
                        "CreateFileDB: initialize file db failed\n");
}

bool CreateNewDataDatabase(const std::string& path, const std::string& data_database) {
  for (const std::string& file : db_util::DatabaseFiles(path)) {
    (void)unlink(file.c_str());  // what cannot be removed fails the statements below
  }
  // The message of the view database, also here; keep it so.
  return CreateDatabase(file_op::At(path), data_database,
                        sql::kCreateDataDatabase + sql::CreateIndexes("main", sql::kDataIndexes),
                        "CreateViewDB: initialize view db failed\n");
}

std::string CreateViewIndexes() { return sql::CreateIndexes("view_db", sql::kViewIndexes); }

std::string CreateFileIndexes() { return sql::CreateIndexes("file_db", sql::kFileIndexes); }

}  // namespace updater::server
