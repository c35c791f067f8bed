#include "updater/framework/server_updater.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ostream>

#include "db-util/query.h"
#include "file-op/file_op.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/stored_version.h"
#include "updater/framework/updater_log.h"

namespace updater {
namespace {

struct AttachedDatabase {
  const char* schema;
  std::string PackagePaths::*path;
};

// In the order in which they are attached, which is the order in which unqualified table names are looked up.
constexpr std::array kAttachedDatabases = {
    AttachedDatabase{"data_db", &PackagePaths::data},
    AttachedDatabase{"log_db", &PackagePaths::log},
    AttachedDatabase{"user_db", &PackagePaths::user},
    AttachedDatabase{"client_db", &PackagePaths::client},
};

std::vector<AttachedDatabase> DatabasesOf(DatabaseSet set) {
  std::vector<AttachedDatabase> databases;
  for (const AttachedDatabase& database : kAttachedDatabases) {
    if (set == DatabaseSet::kWithLog || database.path != &PackagePaths::log) databases.push_back(database);
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
bool CheckVersionQuery(const char* query, const db_util::Status& status) {
  return Check(status, "sqlite3_prepare_v2(%s): %s (%d)\n", query, status.message, status.code);
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

ServerUpdater::ServerUpdater(const UpdaterContext& context, Edge edge, const PackagePaths& paths)
    : context_(context), edge_(std::move(edge)), paths_(paths) {}

int ServerUpdater::Update() {
  const ScopedUpdaterName name(std::to_string(edge_.from.number) + " to " + std::to_string(edge_.to.number));
  const bool ok = RunConnected();
  return logger::ToResult(Disconnect() && ok);
}

bool ServerUpdater::RunConnected() {
  const bool ok =
      Check(Connect(), "failed to connect to databases\n") && CheckVersions() && RunSteps() &&
      Check(UpdateDatabaseVersions() && HaveNewVersions(), "failed to update database versions\n");
  if (ok) ReportSuccess();
  return ok;
}

// The statistics of a live database may be years old and make SQLite scan tables that it takes for small.
// Of databases that stay, the statistics stay: no statement on them depends on those.
bool ServerUpdater::ForgetStatistics() {
  if (!SplitFollows()) return true;
  return ExecForSpeed(db(), "DROP TABLE IF EXISTS data_db.sqlite_stat1;") == 0 &&
         ExecForSpeed(db(), "DROP TABLE IF EXISTS data_db.sqlite_stat4;") == 0 &&
         ExecForSpeed(db(), "ANALYZE data_db.sqlite_master;") == 0;  // makes the connection forget them
}

bool ServerUpdater::RunSteps() {
  if (!ForgetStatistics()) return false;
  for (const Step& step : Steps()) {
    if (!Check(step.run(), step.failure)) return false;
  }
  return true;
}

bool ServerUpdater::Connect() {
  return Check(db_util::OpenScratchDatabase(context_.scratch_database, db_),
               "Failed to initialize database connection (%s)", context_.scratch_database) &&
         CheckScript(Tune(db(), "main"), "PRAGMA main") &&
         Check(AttachDatabases(), "failed to attach database\n");
}

bool ServerUpdater::AttachDatabases() {
  const std::vector<AttachedDatabase> databases = DatabasesOf(edge_.databases);
  std::string statements;
  db_util::Status status;
  missing_.clear();
  for (const auto& [schema, member] : databases) {
    statements += AttachStatement(schema, paths_.*member);
    if (MakeIfMissing(paths_.*member, paths_.data)) missing_.push_back(paths_.*member);
  }
  for (const auto& [schema, member] : databases) {
    if (status.ok()) status = AttachQuietly(db(), schema, paths_.*member);
  }
  return CheckScript(status, statements);
}

void ServerUpdater::Detach() {
  if (!db_) return;
  std::string detach;
  for (const AttachedDatabase& database : DatabasesOf(edge_.databases)) {
    detach += std::string("DETACH DATABASE ") + database.schema + ";";
  }
  // No database can be detached within a transaction that a failed script left open.
  const char* const rollback = sqlite3_get_autocommit(db()) == 0 ? "ROLLBACK;" : "";
  (void)ExecScriptAs(db(), rollback + detach, detach);  // only logged: closing detaches what is left
  db_.reset();
  (void)unlink(context_.scratch_database.c_str());  // nobody reads it again
}

bool ServerUpdater::Disconnect() {
  bool ok = true;
  if (db_) {
    Detach();
    if (names_unreadable_) NameUnreadableDatabases();  // not before, because the updater uses them alone
    ok = AfterDisconnect();
  }
  // An updater is single-use: a second run finds no paths.
  paths_ = {};
  return ok;
}

bool ServerUpdater::ReadVersions(Versions& versions) {
  const bool read = Check(GetDatabaseVersions(versions), "failed to get database versions\n");
  names_unreadable_ |= !read;
  return read;
}

bool ServerUpdater::CheckVersions() {
  Versions versions;
  if (!ReadVersions(versions)) return false;
  const auto& [data, user, client] = versions;
  if (!Check(data == user && user == client, "database version mismatch: (%d, %d, %d)\n", data.number,
             user.number, client.number)) {
    names_unreadable_ = true;
    return false;
  }
  // "invalid branch" also when only the number differs; keep it so.
  return Check(data == edge_.from, "failed to upgrade package: invalid branch, version = %d\n", data.number);
}

// A trigger can ignore an update without an error. Behind the last updater nobody else would notice.
bool ServerUpdater::HaveNewVersions() {
  Versions versions;
  if (!ReadVersions(versions)) return false;
  const auto& [data, user, client] = versions;
  return Check(data == edge_.to && user == edge_.to && client == edge_.to,
               "the databases have not taken their new version: (%d, %d, %d)\n", data.number, user.number,
               client.number);
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

bool ServerUpdater::GetDatabaseVersions(Versions& versions) const {
  bool found = false;
  bool in_range = false;
  const db_util::Status numbers = db_util::ForEachRow(db(), kVersionNumbersQuery, [&](sqlite3_stmt* row) {
    found = true;
    in_range = ReadVersionNumber(row, 0, versions.data.number) &&
               ReadVersionNumber(row, 1, versions.user.number) &&
               ReadVersionNumber(row, 2, versions.client.number);
    return false;
  });
  if (!CheckVersionQuery(kVersionNumbersQuery, numbers)) return false;
  if (!found) return CheckVersionQuery(kVersionNumbersQuery, db_util::StatusOf(SQLITE_DONE));
  if (!in_range) return false;
  const db_util::Status branches = db_util::ForEachRow(db(), kVersionBranchesQuery, [&](sqlite3_stmt* row) {
    versions.data.branch = db_util::ColumnText(row, 0);
    versions.user.branch = db_util::ColumnText(row, 1);
    versions.client.branch = db_util::ColumnText(row, 2);
    return false;
  });
  return CheckVersionQuery(kVersionBranchesQuery, branches);
}

// There may be thousands, and nobody reads their versions before the chain ends. So only two updaters write
// them: the first of the chain that has such folders, which tells of damaged ones, and the last.
bool ServerUpdater::WritesFolderVersions() const {
  return edge_.from.number <= std::max(chain_start_, kSplitVersion) || edge_.to.number == chain_end_;
}

bool ServerUpdater::UpdateDatabaseVersions() const {
  const std::vector<const char*> schemas = VersionedSchemas(edge_.scope);
  if (edge_.scope != VersionScope::kAll) return WriteVersions(schemas);
  VersionedFolders folders;
  return ListVersionedFolders(paths_, folders) &&
         Check(WriteVersions(schemas),
               "Failed to update version and branch to syncfolder-db, user-db, client-db and log-db") &&
         (!WritesFolderVersions() || WriteFolderVersions(db(), paths_, folders, edge_.to));
}

bool ServerUpdater::WriteVersions(const std::vector<const char*>& schemas) const {
  const std::string script = VersionScript(schemas, edge_.to);
  return !script.empty() && ExecScript(db(), script) == 0;
}

void ServerUpdater::ReportSuccess() const {
  if (edge_.success == SuccessLine::kStandardOutput) {
    context_.out << "Upgrade to " << edge_.to << " successfully" << std::endl;
  } else {
    UpdaterLog("Upgrade to '%s' successfully\n", ToString(edge_.to));
  }
}

}  // namespace updater
