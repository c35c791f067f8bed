#include "updater/sqlite_temporary_directory.h"

#include <sqlite3.h>
#include <sys/stat.h>

namespace updater {

SqliteTemporaryDirectory::SqliteTemporaryDirectory(const std::string& path) : path_(path) {
  sqlite3_temp_directory = sqlite3_mprintf("%s", path.c_str());
}

SqliteTemporaryDirectory::~SqliteTemporaryDirectory() {
  sqlite3_free(sqlite3_temp_directory);
  sqlite3_temp_directory = nullptr;
}

void SqliteTemporaryDirectory::MakeIfMissing() const {
  if (mkdir(path_.c_str(), 0777) == 0) (void)chmod(path_.c_str(), 01777);  // best effort, like the folder
}

}  // namespace updater
