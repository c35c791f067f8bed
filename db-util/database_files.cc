#include "db-util/database_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace db_util {

std::array<std::string, kCompanionSuffixes.size() + 1> DatabaseFiles(const std::string& path) {
  std::array<std::string, kCompanionSuffixes.size() + 1> files;
  files[0] = path;
  for (std::size_t i = 0; i < kCompanionSuffixes.size(); ++i) {
    files[i + 1] = path + std::string(kCompanionSuffixes[i]);
  }
  return files;
}

bool HasCompanions(const std::string& path) {
  struct stat status {};
  return std::any_of(kCompanionSuffixes.begin(), kCompanionSuffixes.end(), [&](std::string_view suffix) {
    const std::string file = path + std::string(suffix);
    return lstat(file.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
  });
}

int RemoveCompanions(const std::string& path) {
  for (const std::string_view suffix : kCompanionSuffixes) {
    if (unlink((path + std::string(suffix)).c_str()) < 0 && errno != ENOENT) return -1;
  }
  return 0;
}

}  // namespace db_util
