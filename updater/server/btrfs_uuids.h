// Renames btrfs volumes from the old text form of their uuid to the new one, everywhere the uuid is stored.
// Every operation returns false after logging what failed.
#pragma once

#include <sqlite3.h>

#include <map>
#include <string>

#include "platform/volumes.h"
#include "updater/framework/views.h"

namespace updater::server {

// From the old form to the new one.
using UuidRenames = std::map<std::string, std::string>;

// Finds the volumes of data_db that are stored under the old form of their uuid.
[[nodiscard]] bool FindBtrfsRenames(sqlite3* db, platform::Volumes& volumes, UuidRenames& renames);

[[nodiscard]] bool RenameUuidsInVolumeTable(sqlite3* db, const UuidRenames& renames);

// In one transaction: a rename that fails leaves the view as it was.
[[nodiscard]] bool RenameUuidsInView(sqlite3* db, const PackagePaths& paths, ViewId view,
                                     const UuidRenames& renames);

[[nodiscard]] bool RenameFileFolders(const PackagePaths& paths, const UuidRenames& renames);

}  // namespace updater::server
