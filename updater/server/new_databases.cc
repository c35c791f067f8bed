#include "updater/server/new_databases.h"

#include <unistd.h>

#include <cerrno>
#include <memory>

#include "base/errno.h"
#include "base/write_all.h"
#include "db-util/database.h"
#include "db-util/database_files.h"
#include "db-util/execute.h"
#include "db-util/log_mode.h"
#include "file-op/file_op.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"
#include "updater/server/sql/split.h"

namespace updater::server {
namespace {

using file_op::FilePlace;
using file_op::Folder;
using package::PackagePaths;

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

// The bytes of a database that a script makes, with a suspended log; empty when it could not be made. The
// tables of a view are named "view_db.node_table", because 4100 to 4150 makes the same in an attached
// database.
std::string MakeImage(const char* schema, const std::string& script) {
  db_util::Database db;
  const std::string all = "ATTACH ':memory:' AS view_db; " + InTransaction(script);
  sqlite3_int64 size = 0;
  if (!db_util::OpenQuietly(":memory:", db, db_util::OpenMode::kReadWrite).ok() ||
      !db_util::Execute(db.get(), all).ok()) {
    return {};
  }
  const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> bytes(
      sqlite3_serialize(db.get(), schema, &size, 0), &sqlite3_free);
  if (!bytes) return {};
  std::string image(bytes.get(), bytes.get() + size);
  db_util::AddSuspendedLogTo(image);
  return image;
}

// With the owner and access bits of the data database from the start. The lines tell no reason, and of an
// opening although there is none; keep it so.
bool WriteDatabase(const FilePlace& place, const std::string& data_database, const std::string& image,
                   const logger::PrintfFormat<>& failure) {
  base::FileDescriptor made;
  const db_util::Status status =
      db_util::StatusOf(file_op::MakeFileLike(place, data_database, made) < 0 ? SQLITE_CANTOPEN : SQLITE_OK);
  return Check(status, "sqlite3_open: %s (%d)\n", status.message, status.code) &&
         Check(!image.empty() && base::WriteAll(made.get(), image).ok(), failure);
}

}  // namespace

bool MakeFolder(const std::string& path) { return CheckFolder(file_op::FSMKDir(path, false), path); }

std::string MakeViewImage(const std::string& tables) {
  return MakeImage("view_db", std::string(sql::kCreateOtherTables) + tables + sql::kCreateSplitTrigger);
}

bool CreateViewDatabase(const PackagePaths& paths, ViewId view, const std::string& data_database,
                        const std::string& image) {
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
         WriteDatabase(folder.In(package::kViewDatabase), data_database, image,
                       "CreateViewDB: initialize view db failed\n");
}

bool CreateFileDatabase(const PackagePaths& paths, const std::string& uuid,
                        const std::string& data_database) {
  Folder folder;
  const std::string image = MakeImage("main", sql::kCreateFileDatabase);
  return Check(OpenFolderIn(paths.file_folder, uuid, folder), "CreateFileDB: cannot make directory (%s)\n",
               paths.FileFolder(uuid)) &&
         WriteDatabase(folder.In(package::kFileDatabase), data_database, image,
                       "CreateFileDB: initialize file db failed\n");
}

bool CreateNewDataDatabase(const std::string& path, const std::string& data_database) {
  const bool is_free = (unlink(path.c_str()) == 0 || errno == ENOENT) && db_util::RemoveCompanions(path) == 0;
  const std::string script = sql::kCreateDataDatabase + sql::CreateIndexes("main", sql::kDataIndexes);
  const std::string image = is_free ? MakeImage("main", script) : std::string();
  // The message of the view database, also here; keep it so.
  return WriteDatabase(file_op::At(path), data_database, image, "CreateViewDB: initialize view db failed\n");
}

std::string CreateNodeAndVersionIndexes() {
  return sql::CreateIndexes("view_db", sql::kNodeAndVersionIndexes);
}

std::string CreateOtherViewIndexes() { return sql::CreateIndexes("view_db", sql::kOtherViewIndexes); }

std::string CreateFileIndexes() { return sql::CreateIndexes("file_db", sql::kFileIndexes); }

}  // namespace updater::server
