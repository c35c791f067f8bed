// Writing the version into the databases of a package.
#pragma once

#include <sqlite3.h>

#include <string>
#include <vector>

#include "package/layout.h"
#include "updater/framework/version.h"

namespace updater {

// One transaction for the attached databases `schemas`: the numbers, then the branches. Empty when SQLite
// could not make it.
[[nodiscard]] std::string VersionScript(const std::vector<const char*>& schemas, const Version& version);

// The names of the folders whose databases are versioned with the package.
struct VersionedFolders {
  std::vector<std::string> views;
  std::vector<std::string> volumes;
};

// Returns false after logging "Failed to get views in folder %s\n" or "Failed to get files in folder %s\n",
// both with the view folder.
[[nodiscard]] bool ListVersionedFolders(const package::PackagePaths& paths, VersionedFolders& folders);

// Writes version and branch into the database of every folder, views first, each attached, written and
// detached in one script. Returns false at the first failure, after logging
// "Failed to update version and branch to view-db %s" (or file-db) with the database's path.
[[nodiscard]] bool WriteFolderVersions(sqlite3* db, const package::PackagePaths& paths,
                                       const VersionedFolders& folders, const Version& version);

}  // namespace updater
