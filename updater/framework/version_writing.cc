#include "updater/framework/version_writing.h"

#include "file-op/file_op.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/run_observer.h"
#include "updater/framework/updater_log.h"

namespace updater {
namespace {

// These add one statement to a script. False when SQLite could not make it.
bool AppendNumber(std::string& script, const char* schema, const Version& version) {
  std::string statement;
  const bool made = db_util::FormatSql(
      statement, "UPDATE %s.config_table SET value = %d WHERE key = 'version';", schema, version.number);
  script += statement;
  return made;
}

bool AppendBranch(std::string& script, const char* schema, const Version& version) {
  std::string statement;
  const bool made = db_util::FormatSql(
      statement, "INSERT OR REPLACE INTO %s.config_table (key, value) VALUES ('branch', %Q); ", schema,
      version.branch);
  script += statement;
  return made;
}

bool WriteVersion(sqlite3* db, const char* schema, const std::string& path, const Version& version) {
  std::string body = " ";
  return AppendNumber(body, schema, version) && AppendBranch(body, schema, version) &&
         ExecAttached(db, schema, path, body) == 0;
}

}  // namespace

std::string VersionScript(const std::vector<const char*>& schemas, const Version& version) {
  std::string script = "BEGIN TRANSACTION; ";
  for (const char* schema : schemas) {
    if (!AppendNumber(script, schema, version)) return {};
  }
  for (const char* schema : schemas) {
    if (!AppendBranch(script, schema, version)) return {};
  }
  return script + "END TRANSACTION;";
}

bool ListVersionedFolders(const package::PackagePaths& paths, VersionedFolders& folders) {
  // The second message names the view folder too; keep it so.
  return Check(file_op::ListFolders(paths.view_folder, folders.views), "Failed to get views in folder %s\n",
               paths.view_folder) &&
         Check(file_op::ListFolders(paths.file_folder, folders.volumes), "Failed to get files in folder %s\n",
               paths.view_folder);
}

bool WriteFolderVersions(sqlite3* db, const package::PackagePaths& paths, const VersionedFolders& folders,
                         const Version& version) {
  PartCounter counter("database", folders.views.size() + folders.volumes.size());
  for (const std::string& view : folders.views) {
    const std::string path = paths.ViewDatabase(view);
    if (!Check(WriteVersion(db, "view_db", path, version),
               "Failed to update version and branch to view-db %s", path)) {
      return false;
    }
    counter.Next();
  }
  for (const std::string& volume : folders.volumes) {
    const std::string path = paths.FileDatabase(volume);
    if (!Check(WriteVersion(db, "file_db", path, version),
               "Failed to update version and branch to file-db %s", path)) {
      return false;
    }
    counter.Next();
  }
  return true;
}

}  // namespace updater
