#include "updater/sqlite_temporary_directory.h"

#include <sqlite3.h>

#include "file-op/file_op.h"

namespace updater {

SqliteTemporaryDirectory::SqliteTemporaryDirectory(const std::string& path) : path_(path) {
  sqlite3_temp_directory = sqlite3_mprintf("%s", path.c_str());
}

SqliteTemporaryDirectory::~SqliteTemporaryDirectory() {
  sqlite3_free(sqlite3_temp_directory);
  sqlite3_temp_directory = nullptr;
}

void SqliteTemporaryDirectory::MakeIfMissing() const {
  (void)file_op::FSMKDir(path_, false, 01777);  // best effort
}

}  // namespace updater
