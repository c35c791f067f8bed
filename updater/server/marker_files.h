// Empty files that updaters make in the live sync folder. They do no harm when the run fails.
#pragma once

#include <string>

namespace updater::server {

// Makes or truncates an empty file; its folder must exist, and a link in its place is not followed: the
// folders belong to the service, and this runs as root. Returns 0, or -1 after logging
// "failed to open file(%s): %s\n".
[[nodiscard]] int CreateEmptyFile(const std::string& path);

// The text before the last "/" of the path, unlike base::FolderOf() without one for a name alone. Logs
// "invalid path %s\n" and returns empty text when there is none.
[[nodiscard]] std::string GetParentDir(const std::string& path);

// Makes the empty files repo/.0 and delta/.0 beside the data database, in folders that must be there. Returns
// false after logging "failed to create empty file\n"; the first then stays.
[[nodiscard]] bool CreateMarkerFiles(const std::string& data_database);

}  // namespace updater::server
