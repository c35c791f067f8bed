// The package as it lies on a volume: the version of its databases, how they are called, and where they are.
//
// No other file spells a name that two of them need; what one updater alone makes in the sync folder stands
// there. A statement of an updater that names a version belongs to a layout of the past and stays as it is
// when the current version is raised.
#pragma once

#include <string>

#include "base/view_id.h"

namespace package {

inline constexpr const char* kMasterBranch = "master";

// What a run brings every database to, and what the rest of the program expects of them.
inline constexpr int kCurrentVersion = 4150;
inline constexpr const char* kCurrentBranch = kMasterBranch;

inline constexpr const char* kViewDatabase = "view-db.sqlite";  // in the folder of each view
inline constexpr const char* kFileDatabase = "file-db.sqlite";  // in the folder of each volume

// Folders of stored files in the sync folder, which the updaters know: for files, for deltas, and for what
// the server removes later.
inline constexpr const char* kFilesFolder = "/repo";
inline constexpr const char* kDeltasFolder = "/delta";
inline constexpr const char* kRemovalFolder = "/rm";

// One set of the package's databases: the live ones, or their working copies.
struct PackagePaths {
  std::string sync_folder;  // around all but the client database; the same for the working copies
  std::string data;
  std::string log;
  std::string user;
  std::string client;
  std::string view_folder;  // a folder for each view, called by its id
  std::string file_folder;  // a folder for each volume, called by its uuid

  [[nodiscard]] std::string ViewFolder(const std::string& view) const;
  [[nodiscard]] std::string ViewDatabase(const std::string& view) const;
  [[nodiscard]] std::string ViewDatabase(base::ViewId view) const;
  [[nodiscard]] std::string FileFolder(const std::string& uuid) const;
  [[nodiscard]] std::string FileDatabase(const std::string& uuid) const;
};

// For whoever knows the sync folder alone: its live databases, without the client database, which lies
// elsewhere.
[[nodiscard]] PackagePaths PathsInSyncFolder(const std::string& sync_folder);

// Everything on one volume that a run touches.
struct VolumePaths {
  // `path` is used exactly as given: nothing is normalised, a trailing slash stays.
  explicit VolumePaths(const std::string& path);

  std::string volume;
  std::string package_folder;
  std::string temporary_folder;    // for SQLite's own temporary files
  std::string client_sync_folder;  // nobody looks at it: the legacy chain needs nothing there

  PackagePaths live;
  PackagePaths copies;  // beside the live ones

  std::string intent;  // what a run is putting in place
};

}  // namespace package
