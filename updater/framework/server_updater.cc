#include "updater/framework/server_updater.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ostream>

#include "db-util/query.h"
#include "file-op/file_op.h"
#include "updater/framework/stored_version.h"
#include "updater/framework/view_databases.h"

namespace updater {
namespace {

struct AttachedDatabase {
  const char* schema;
  std::string DatabasePaths::*path;
};

// In the order in which they are attached, which is the order in which unqualified table names are looked up.
constexpr std::array kAttachedDatabases = {
    AttachedDatabase{"data_db", &DatabasePaths::data},
    AttachedDatabase{"log_db", &DatabasePaths::log},
    AttachedDatabase{"user_db", &DatabasePaths::user},
    AttachedDatabase{"client_db", &DatabasePaths::client},
};

std::vector<AttachedDatabase> DatabasesOf(DatabaseSet set) {
  std::vector<AttachedDatabase> databases;
  for (const AttachedDatabase& database : kAttachedDatabases) {
    if (set == DatabaseSet::kWithLog || database.path != &DatabasePaths::log) databases.push_back(database);
  }
  return databases;
}

constexpr const char* kVersionNumbersQuery =
    "SELECT data_db_version, user_db_version, client_db_version FROM ("
    "     (SELECT value AS data_db_version   FROM data_db.config_table   WHERE key = 'version') JOIN"
    "     (SELECT value AS user_db_version   FROM user_db.config_table   WHERE key = 'version') JOIN"
    "     (SELECT value AS client_db_version FROM client_db.config_table WHERE key = 'version') );";
constexpr const char* kVersionBranchesQuery =
    "SELECT data_db_version, user_db_version, client_db_version FROM ("
    "     (SELECT value AS data_db_version   FROM data_db.config_table   WHERE key = 'branch') JOIN"
    "     (SELECT value AS user_db_version   FROM user_db.config_table   WHERE key = 'branch') JOIN"
    "     (SELECT value AS client_db_version FROM client_db.config_table WHERE key = 'branch') );";

// Both stages of a version query that fail are reported as a failed preparation; keep it so.
int LogVersionQueryFailure(const char* query, const std::string& message, int code) {
  logger::UpdaterLog("sqlite3_prepare_v2(%s): %s (%d)\n", query, message, code);
  return -1;
}

// Versions have 32 bits; SQLite's conversion to an int would keep the lower half of a longer number.
bool ReadVersionNumber(sqlite3_stmt* row, int column, int& number) {
  const sqlite3_int64 stored = sqlite3_column_int64(row, column);
  number = static_cast<int>(stored);
  return number == stored;
}

// The databases whose version is written, in the order of the version script.
std::vector<const char*> VersionedSchemas(VersionScope scope) {
  std::vector<const char*> schemas = {"data_db", "user_db", "client_db"};
  if (scope != VersionScope::kThree) schemas.push_back("log_db");
  return schemas;
}

}  // namespace

ServerUpdater::ServerUpdater(const UpdaterContext& context, Edge edge, DatabasePaths paths)
    : context_(context), edge_(std::move(edge)), paths_(std::move(paths)) {}

int ServerUpdater::Update() {
  const logger::ScopedUpdaterName name(std::to_string(edge_.from.number) + " to " +
                                       std::to_string(edge_.to.number));
  const int result = RunConnected();
  Disconnect();
  return result;
}

int ServerUpdater::RunConnected() {
  if (!logger::Succeeded(Connect(), "failed to connect to databases\n") || CheckVersions() < 0 ||
      RunSteps(Steps()) < 0 ||
      !logger::Succeeded(UpdateDatabaseVersions(), "failed to update database versions\n")) {
    return -1;
  }
  ReportSuccess();
  return 0;
}

int ServerUpdater::RunSteps(const std::vector<Step>& steps) {
  for (const Step& step : steps) {
    if (!logger::Succeeded(step.run(), step.failure)) return -1;
  }
  return 0;
}

int ServerUpdater::Connect() {
  if (!logger::Succeeded(db_util::OpenScratchDatabase(context_.scratch_database, db_),
                         "Failed to initialize database connection (%s)", context_.scratch_database)) {
    return -1;
  }
  return logger::Succeeded(AttachDatabases(), "failed to attach database\n") ? 0 : -1;
}

int ServerUpdater::AttachDatabases() {
  const std::vector<AttachedDatabase> databases = DatabasesOf(edge_.databases);
  std::string attach;
  std::string tune;
  missing_.clear();
  for (const AttachedDatabase& database : databases) {
    const std::string& path = paths_.*database.path;
    std::string statement;
    if (!db_util::FormatSql(statement, "ATTACH DATABASE %Q AS %s;", path, database.schema)) return -1;
    attach += statement;
    tune += TuneStatements(database.schema);
    if (file_op::FSExists(path)) continue;
    missing_.push_back(path);
    // A database that ATTACH would make belongs to whoever the data database belongs to, not to root. What
    // cannot be made cannot be attached either.
    base::FileDescriptor made;
    (void)file_op::MakeFileLike(file_op::At(path), paths_.data, made);
  }
  db_util::ExecFailure failure;
  if (db_util::Execute(db(), attach + tune, failure) != SQLITE_OK) {
    db_util::LogExecFailure(attach, failure);
    return -1;
  }
  return 0;
}

void ServerUpdater::Detach() {
  if (!db_) return;
  std::string detach;
  for (const AttachedDatabase& database : DatabasesOf(edge_.databases)) {
    detach += std::string("DETACH DATABASE ") + database.schema + ";";
  }
  // No database can be detached within a transaction that a failed script left open.
  const char* const rollback = sqlite3_get_autocommit(db()) == 0 ? "ROLLBACK;" : "";
  (void)db_util::ExecScriptAs(db(), rollback + detach, detach);  // only logged: closing detaches what is left
  db_.reset();
  (void)unlink(context_.scratch_database.c_str());  // nobody reads it again
}

void ServerUpdater::Disconnect() {
  const bool was_connected = db_ != nullptr;
  Detach();
  if (was_connected) AfterDisconnect();
  // An updater is single-use: a second run finds no paths.
  paths_ = {};
}

int ServerUpdater::CheckVersions() {
  Versions versions;
  if (!logger::Succeeded(GetDatabaseVersions(versions), "failed to get database versions\n")) {
    NameUnreadableDatabases();
    return -1;
  }
  const Version& data = versions.data;
  if (data != versions.user || versions.user != versions.client) {
    logger::UpdaterLog("database version mismatch: (%d, %d, %d)\n", data.number, versions.user.number,
                       versions.client.number);
    NameUnreadableDatabases();
    return -1;
  }
  if (data != edge_.from) {
    // "invalid branch" also when only the number differs; keep it so.
    logger::UpdaterLog("failed to upgrade package: invalid branch, version = %d\n", data.number);
    return -1;
  }
  return 0;
}

// A version that cannot be read is 0 in the line about the mismatch, and the query over all of them does not
// say which one is missing.
void ServerUpdater::NameUnreadableDatabases() const {
  for (const std::string& path : {paths_.data, paths_.user, paths_.client}) {
    Version ignored;
    if (std::find(missing_.begin(), missing_.end(), path) != missing_.end()) {
      LogUnreadableVersion(path, "there was no such file");
    } else {
      (void)ReadStoredVersion(path, ignored);  // logs what it is called for
    }
  }
}

int ServerUpdater::GetDatabaseVersions(Versions& versions) const {
  bool found = false;
  bool in_range = false;
  db_util::QueryResult result = db_util::ForEachRow(db(), kVersionNumbersQuery, [&](sqlite3_stmt* row) {
    found = true;
    in_range = ReadVersionNumber(row, 0, versions.data.number) &&
               ReadVersionNumber(row, 1, versions.user.number) &&
               ReadVersionNumber(row, 2, versions.client.number);
    return false;
  });
  if (!result.ok()) return LogVersionQueryFailure(kVersionNumbersQuery, result.message, result.code);
  if (!found) return LogVersionQueryFailure(kVersionNumbersQuery, sqlite3_errstr(SQLITE_DONE), SQLITE_DONE);
  if (!in_range) return -1;
  result = db_util::ForEachRow(db(), kVersionBranchesQuery, [&](sqlite3_stmt* row) {
    versions.data.branch = db_util::ColumnText(row, 0);
    versions.user.branch = db_util::ColumnText(row, 1);
    versions.client.branch = db_util::ColumnText(row, 2);
    return false;
  });
  if (!result.ok()) return LogVersionQueryFailure(kVersionBranchesQuery, result.message, result.code);
  return 0;
}

int ServerUpdater::UpdateDatabaseVersions() {
  const bool with_folders = edge_.scope == VersionScope::kAll;
  if (with_folders && ListVersionFolders() < 0) return -1;
  std::string script = "BEGIN TRANSACTION; ";
  const std::vector<const char*> schemas = VersionedSchemas(edge_.scope);
  for (const char* schema : schemas) {
    if (!AppendNumberStatement(script, schema, edge_.to)) return -1;
  }
  for (const char* schema : schemas) {
    if (!AppendBranchStatement(script, schema, edge_.to)) return -1;
  }
  script += "END TRANSACTION;";
  const int result = db_util::ExecScript(db(), script);
  if (!with_folders) return result;
  if (!logger::Succeeded(
          result, "Failed to update version and branch to syncfolder-db, user-db, client-db and log-db")) {
    return -1;
  }
  return UpdateFolderVersions();
}

void ServerUpdater::ReportSuccess() const {
  if (edge_.success == SuccessLine::kStandardOutput) {
    context_.out << "Upgrade to " << edge_.to << " successfully" << std::endl;
  } else {
    logger::UpdaterLog("Upgrade to '%s' successfully\n", ToString(edge_.to));
  }
}

int ServerUpdater::CreateEmptyFile(const std::string& path) {
  if (file_op::FSMakeEmptyFile(path) == 0) return 0;
  logger::UpdaterLog("failed to open file(%s): %s\n", path, std::string(std::strerror(errno)));
  return -1;
}

std::string ServerUpdater::GetParentDir(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash != std::string::npos) return path.substr(0, slash);
  logger::UpdaterLog("invalid path %s\n", path);
  return {};
}

}  // namespace updater
