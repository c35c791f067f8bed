#include "updater/server/new_databases.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "db-util/database.h"
#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "logger/updater_log.h"
#include "updater/server/sql/indexes.h"
#include "updater/server/sql/view_tables.h"

namespace updater::server {
namespace {

using file_op::FilePlace;
using file_op::Folder;
using sql::Index;

constexpr const char* kJournalPragmas = "PRAGMA journal_mode = WAL;PRAGMA synchronous = NORMAL;";

constexpr const char* kCreateConfigTable =
    "CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT ''); ";

// The view tables lead: see CreateViewTables(). The version is that of the last layout on purpose; every
// later updater writes its own.
constexpr const char* kCreateViewRest =
    "CREATE TABLE tree_table (node_id INTEGER NOT NULL, parent_id INTEGER NOT NULL, distance INTEGER NOT NULL); "
    "CREATE TABLE temp_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT ''); "
    "INSERT OR IGNORE INTO config_table (key, value) VALUES ('sync_id', '0'); "
    "INSERT OR IGNORE INTO config_table (key, value) VALUES ('sign_id', '0'); "
    "INSERT OR IGNORE INTO config_table (key, value) VALUES ('rotate_cnt', '32'); "
    "INSERT OR IGNORE INTO config_table (key, value) VALUES ('remove_repo', '0'); "
    "INSERT OR IGNORE INTO config_table (key, value) VALUES ('rotate_span', '15552000'); "
    "INSERT INTO config_table (key, value) VALUES ('version', '4150'); "
    "INSERT INTO config_table (key, value) VALUES ('branch', 'master'); "
    "INSERT OR IGNORE INTO temp_table (key, value) VALUES ('last_insert_node_id', 0); "
    "INSERT OR IGNORE INTO temp_table (key, value) VALUES ('parent_id', 0); "
    "INSERT OR IGNORE INTO temp_table (key, value) VALUES ('removed_file_id', ''); "
    "INSERT OR IGNORE INTO temp_table (key, value) VALUES ('removed_node_delta_id', ''); "
    "CREATE TRIGGER version_delete_trigger AFTER DELETE ON version_table FOR EACH ROW BEGIN "
    "UPDATE temp_table SET value = (value || ' (' || OLD.file_uuid || ', ' || OLD.file_id || ')') "
    "WHERE OLD.file_uuid != '' AND OLD.file_id != 0 AND key = 'removed_file_id'; "
    "UPDATE temp_table SET value = (value || ' (' || get_mac_attr_uuid(OLD.mac_attr) || ', ' || "
    "get_mac_attr_file_id(OLD.mac_attr) || ')') WHERE get_mac_attr_uuid(OLD.mac_attr) != '' "
    "AND get_mac_attr_file_id(OLD.mac_attr) != 0 AND key = 'removed_file_id'; "
    "END; ";

constexpr Index kViewIndexes[] = {
    {"node_table", "node_id"},      {"node_table", "parent_id"},  {"node_table", "attribute"},
    {"node_table", "max_id"},       {"node_table", "sync_id"},    {"node_table", "name"},
    {"node_table", "path"},         {"version_table", "ver_id"},  {"version_table", "node_id"},
    {"version_table", "attribute"}, {"version_table", "sync_id"}, {"version_table", "sess_id"},
    {"config_table", "key"},        {"tree_table", "node_id"},    {"tree_table", "parent_id"},
    {"tree_table", "distance"},     {"temp_table", "key"},
};

constexpr const char* kCreateFileTables =
    "CREATE TABLE file_table (file_id INTEGER PRIMARY KEY, attribute INTEGER DEFAULT 0, "
    "ref_cnt INTEGER DEFAULT 0, size INTEGER DEFAULT 0, hash VARCHAR(40) DEFAULT ''); "
    "CREATE TABLE delta_table (node_id INTEGER, from_id INTEGER, to_id INTEGER, attribute INTEGER, "
    "delta_file_id INTEGER); ";
constexpr const char* kFileRows =
    "INSERT INTO config_table (key, value) VALUES ('version', '4150'); "
    "INSERT INTO config_table (key, value) VALUES ('branch', 'master'); "
    "INSERT INTO config_table (key, value) VALUES ('file_id', 0); "
    "INSERT INTO config_table (key, value) VALUES ('delta_id', 0); "
    "INSERT INTO config_table (key, value) VALUES ('node_delta_id', 0); ";

constexpr Index kFileIndexes[] = {
    {"file_table", "file_id"},  {"file_table", "attribute"}, {"file_table", "ref_cnt"},
    {"file_table", "size"},     {"file_table", "hash"},      {"delta_table", "node_id"},
    {"delta_table", "from_id"}, {"delta_table", "to_id"},    {"delta_table", "delta_file_id"},
    {"config_table", "key"},
};

constexpr const char* kCreateVolumeTable =
    "CREATE TABLE volume_table (uuid VARCHAR PRIMARY KEY, repo_path VARCHAR DEFAULT ''); ";

constexpr Index kDataIndexes[] = {{"volume_table", "uuid"}, {"config_table", "key"}};

int LogFolderFailure(const std::string& path) { return logger::SystemLogErrno("mkdir(%s): %s (%d)\n", path); }

// Opens the folder that is there, or a new one.
int OpenFolder(const Folder& above, const std::string& name, Folder& out) {
  const bool made = out.MakeShared(above, name, file_op::kFolderMode) == 0;
  return made || (errno == EEXIST && out.Open(above.In(name)) == 0) ? 0
                                                                    : LogFolderFailure(above.In(name).path);
}

// In the folder of all views or volumes, which is a working copy and so no link.
int OpenFolderOf(const std::string& folder, const std::string& name, Folder& out) {
  Folder above;
  return above.Open(file_op::At(folder)) < 0 ? LogFolderFailure(folder + "/" + name)
                                             : OpenFolder(above, name, out);
}

int MakeSignFile(const Folder& sign_folder) {
  if (file_op::MakeEmptyFile(sign_folder, ".0") == 0) return 0;
  const int error = errno;
  logger::SystemLog("fopen: %s (%d)\n", std::string(std::strerror(error)), error);
  return -1;
}

// With the owner and access bits of the data database from the start.
int OpenNewDatabase(const FilePlace& place, const std::string& data_database, db_util::Database& out) {
  base::FileDescriptor made;
  const int code = file_op::MakeFileLike(place, data_database, made) < 0
                       ? SQLITE_CANTOPEN
                       : db_util::OpenExactly(place.path, made.get(), db_util::OpenMode::kReadWrite, out);
  if (code == SQLITE_OK)
    return sqlite3_busy_timeout(out.get(), db_util::kBusyTimeoutMs) == SQLITE_OK ? 0 : -1;
  logger::UpdaterLog("sqlite3_open: %s (%d)\n", sqlite3_errstr(code), code);
  return -1;
}

// Tuned twice: the first time for the change of the journal mode, which flushes too, and again because the
// pragmas set their own level. What fails is told by the caller's line alone; keep it so.
int InitializeDatabase(sqlite3* db, const std::string& script) {
  const std::string tune = TuneStatements("main");
  std::string error;
  return db_util::Execute(db,
                          tune + kJournalPragmas + tune + "BEGIN TRANSACTION;" + script + "END TRANSACTION;",
                          error) == SQLITE_OK
             ? 0
             : -1;
}

int CreateDatabase(const FilePlace& place, const std::string& data_database, const std::string& script,
                   const logger::PrintfFormat<>& failure) {
  db_util::Database db;
  return OpenNewDatabase(place, data_database, db) == 0 &&
                 logger::Succeeded(InitializeDatabase(db.get(), script), failure)
             ? 0
             : -1;
}

}  // namespace

int MakeFolder(const std::string& path) {
  return file_op::FSMKDir(path, false) == 0 ? 0 : LogFolderFailure(path);
}

int CreateViewDatabase(const FolderDatabases& folders, ViewId view, const std::string& data_database) {
  const std::string name = std::to_string(view);
  const std::string path = folders.ViewFolder(name);
  const std::string sign_path = path + "/sign";
  const std::string script =
      sql::CreateViewTables("main", sql::kAttributeLayout) + kCreateConfigTable + kCreateViewRest;
  Folder folder;
  Folder sign_folder;
  return logger::Succeeded(OpenFolderOf(folders.view_folder(), name, folder),
                           "CreateViewDB: cannot make directory (%s)\n", path) &&
                 logger::Succeeded(OpenFolder(folder, "sign", sign_folder),
                                   "CreateViewDB: cannot make directory (%s)\n", sign_path) &&
                 logger::Succeeded(MakeSignFile(sign_folder),
                                   "CreateViewDB: cannot make origin sign file in (%s)\n", sign_path) &&
                 CreateDatabase(folder.In(kViewDatabaseName), data_database, script,
                                "CreateViewDB: initialize view db failed\n") == 0
             ? 0
             : -1;
}

int CreateFileDatabase(const FolderDatabases& folders, const std::string& uuid,
                       const std::string& data_database) {
  const std::string script = std::string(kCreateFileTables) + kCreateConfigTable + kFileRows;
  Folder folder;
  return logger::Succeeded(OpenFolderOf(folders.file_folder(), uuid, folder),
                           "CreateFileDB: cannot make directory (%s)\n", folders.FileFolder(uuid)) &&
                 CreateDatabase(folder.In(kFileDatabaseName), data_database, script,
                                "CreateFileDB: initialize file db failed\n") == 0
             ? 0
             : -1;
}

int CreateNewDataDatabase(const std::string& path, const std::string& data_database) {
  for (const std::string& file : db_util::DatabaseFiles(path)) {
    (void)unlink(file.c_str());  // what cannot be removed fails the statements below
  }
  const std::string script =
      std::string(kCreateVolumeTable) + kCreateConfigTable + sql::CreateIndexes("main", kDataIndexes);
  // The message of the view database, also here; keep it so.
  return CreateDatabase(file_op::At(path), data_database, script,
                        "CreateViewDB: initialize view db failed\n");
}

std::string CreateViewIndexes() { return sql::CreateIndexes("view_db", kViewIndexes); }

std::string CreateFileIndexes() { return sql::CreateIndexes("file_db", kFileIndexes); }

}  // namespace updater::server
