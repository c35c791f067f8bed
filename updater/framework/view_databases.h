// The view databases (one folder per view) and file databases (one folder per volume) of a working copy.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <string>
#include <vector>

#include "base/view_id.h"
#include "updater/framework/version.h"

namespace updater {

using base::ViewId;

inline constexpr const char* kViewDatabaseName = "view-db.sqlite";
inline constexpr const char* kFileDatabaseName = "file-db.sqlite";

class FolderDatabases {
 public:
  FolderDatabases(std::string view_folder, std::string file_folder);

  [[nodiscard]] const std::string& view_folder() const { return view_folder_; }
  [[nodiscard]] const std::string& file_folder() const { return file_folder_; }

  [[nodiscard]] std::string ViewFolder(const std::string& name) const;
  [[nodiscard]] std::string ViewDatabase(const std::string& name) const;
  [[nodiscard]] std::string ViewDatabase(ViewId view) const { return ViewDatabase(std::to_string(view)); }
  [[nodiscard]] std::string FileFolder(const std::string& name) const;
  [[nodiscard]] std::string FileDatabase(const std::string& name) const;

  // Lists the view folders, then the file folders. Returns 0, or -1 after logging
  // "Failed to get views in folder %s\n" or "Failed to get files in folder %s\n", both with the view folder.
  [[nodiscard]] int List();

  // Writes version and branch into every database listed, view databases first, through `db`, each attached,
  // written and detached in one script. Returns 0, or -1 at the first failure after logging
  // "Failed to update version and branch to view-db %s" (or file-db) with the database's path.
  [[nodiscard]] int WriteVersion(sqlite3* db, const Version& version) const;

 private:
  std::string view_folder_;
  std::string file_folder_;
  std::vector<std::string> view_names_;
  std::vector<std::string> file_names_;
};

// Add the statement that sets the version number, or the branch, of one attached database to a script. False
// when SQLite could not make the text; the script is then as it was.
[[nodiscard]] bool AppendNumberStatement(std::string& script, const char* schema, const Version& version);
[[nodiscard]] bool AppendBranchStatement(std::string& script, const char* schema, const Version& version);

// "SELECT view_id FROM user_table;" on the connection, in result order. Returns 0 or -1 after logging the
// failure of the query; the caller adds its own line.
[[nodiscard]] int ReadViewIds(sqlite3* db, std::vector<ViewId>& views);

// The view id as the tables store it, signed. Written without a sign, an id above 2^63-1, which is stored
// below 0, would be a floating-point number to SQLite and find nothing.
[[nodiscard]] inline long long StoredId(ViewId view) { return static_cast<long long>(view); }

// Attaches the database at `path` as `schema`, tuned. Returns 0 or -1 after logging the failing statement.
[[nodiscard]] int AttachDatabase(sqlite3* db, const char* schema, const std::string& path);

// "ATTACH DATABASE '<path>' AS <schema>;", `body` and "DETACH DATABASE <schema>;" as one text; empty when
// SQLite could not make it.
[[nodiscard]] std::string AttachedScript(const char* schema, const std::string& path,
                                         const std::string& body);

// Runs AttachedScript(), tuned behind the ATTACH. Returns 0, or -1 after logging the whole script; what a
// failing body has attached stays attached.
[[nodiscard]] int ExecAttached(sqlite3* db, const char* schema, const std::string& path,
                               const std::string& body);

// Statements that follow every ATTACH: a working copy is disposable until the run is committed, so nothing is
// flushed for it. No setting leaves a trace in the file, and no log shows them.
[[nodiscard]] std::string TuneStatements(const char* schema);

}  // namespace updater
