#include "updater/framework/view_databases.h"

#include "db-util/database.h"
#include "db-util/query.h"
#include "file-op/file_op.h"
#include "logger/updater_log.h"

namespace updater {
namespace {

// 32 MiB a schema: the five that are attached at once stay below what the smallest appliance has free.
constexpr int kCacheKiB = 32768;

std::string DetachStatement(const char* schema) { return std::string("DETACH DATABASE ") + schema + ";"; }

bool FormatAttach(std::string& out, const char* schema, const std::string& path) {
  return db_util::FormatSql(out, "ATTACH DATABASE %Q AS %s;", path, schema);
}

int WriteOneVersion(sqlite3* db, const char* schema, const std::string& path, const Version& version) {
  std::string body = " ";
  const bool made =
      AppendNumberStatement(body, schema, version) && AppendBranchStatement(body, schema, version);
  return made ? ExecAttached(db, schema, path, body) : -1;
}

}  // namespace

bool AppendNumberStatement(std::string& script, const char* schema, const Version& version) {
  std::string statement;
  const bool formatted = db_util::FormatSql(
      statement, "UPDATE %s.config_table SET value = %d WHERE key = 'version';", schema, version.number);
  script += statement;  // empty if it could not be made
  return formatted;
}

bool AppendBranchStatement(std::string& script, const char* schema, const Version& version) {
  std::string statement;
  const bool formatted = db_util::FormatSql(
      statement, "INSERT OR REPLACE INTO %s.config_table (key, value) VALUES ('branch', %Q); ", schema,
      version.branch);
  script += statement;  // empty if it could not be made
  return formatted;
}

FolderDatabases::FolderDatabases(std::string view_folder, std::string file_folder)
    : view_folder_(std::move(view_folder)), file_folder_(std::move(file_folder)) {}

std::string FolderDatabases::ViewFolder(const std::string& name) const { return view_folder_ + "/" + name; }

std::string FolderDatabases::ViewDatabase(const std::string& name) const {
  return ViewFolder(name) + "/" + kViewDatabaseName;
}

std::string FolderDatabases::FileFolder(const std::string& name) const { return file_folder_ + "/" + name; }

std::string FolderDatabases::FileDatabase(const std::string& name) const {
  return FileFolder(name) + "/" + kFileDatabaseName;
}

int FolderDatabases::List() {
  view_names_.clear();
  file_names_.clear();
  // The second message names the view folder too; keep it so.
  return logger::Succeeded(file_op::ListFolders(view_folder_, view_names_),
                           "Failed to get views in folder %s\n", view_folder_) &&
                 logger::Succeeded(file_op::ListFolders(file_folder_, file_names_),
                                   "Failed to get files in folder %s\n", view_folder_)
             ? 0
             : -1;
}

int FolderDatabases::WriteVersion(sqlite3* db, const Version& version) const {
  for (const std::string& name : view_names_) {
    const std::string path = ViewDatabase(name);
    if (!logger::Succeeded(WriteOneVersion(db, "view_db", path, version),
                           "Failed to update version and branch to view-db %s", path)) {
      return -1;
    }
  }
  for (const std::string& name : file_names_) {
    const std::string path = FileDatabase(name);
    if (!logger::Succeeded(WriteOneVersion(db, "file_db", path, version),
                           "Failed to update version and branch to file-db %s", path)) {
      return -1;
    }
  }
  return 0;
}

int ReadViewIds(sqlite3* db, std::vector<ViewId>& views) {
  views.clear();
  const db_util::QueryResult result =
      db_util::ForEachRow(db, "SELECT view_id FROM user_table;", [&views](sqlite3_stmt* row) {
        views.push_back(static_cast<ViewId>(sqlite3_column_int64(row, 0)));
        return true;
      });
  if (result.ok()) return 0;
  if (result.failed_at == db_util::QueryResult::Stage::kPrepare) {
    logger::UpdaterLog("sqlite3_prepare_v2: %s (%d)\n", result.message, result.code);
  } else {
    logger::UpdaterLog("sqlite3_step: %s\n", result.message);
  }
  return -1;
}

int AttachDatabase(sqlite3* db, const char* schema, const std::string& path) {
  std::string attach;
  if (!FormatAttach(attach, schema, path)) return -1;
  return db_util::ExecScriptAs(db, attach + TuneStatements(schema), attach);
}

std::string AttachedScript(const char* schema, const std::string& path, const std::string& body) {
  std::string attach;
  return FormatAttach(attach, schema, path) ? attach + body + DetachStatement(schema) : std::string();
}

int ExecAttached(sqlite3* db, const char* schema, const std::string& path, const std::string& body) {
  const std::string script = AttachedScript(schema, path, TuneStatements(schema) + body);
  return script.empty() ? -1 : db_util::ExecScriptAs(db, script, AttachedScript(schema, path, body));
}

std::string TuneStatements(const char* schema) {
  const std::string pragma = std::string("PRAGMA ") + schema + ".";
  return pragma + "synchronous = OFF;" + pragma + "secure_delete = OFF;" + pragma + "cache_size = -" +
         std::to_string(kCacheKiB) + ";";
}

}  // namespace updater
