// Where SQLite puts its temporary files.
#pragma once

#include <string>

namespace updater {

// SQLite's folder for temporary files, for as long as the object lives: the system's own may be a small
// tmpfs. One object at a time, as the setting is the library's.
class SqliteTemporaryDirectory {
 public:
  explicit SqliteTemporaryDirectory(const std::string& path);
  ~SqliteTemporaryDirectory();
  SqliteTemporaryDirectory(const SqliteTemporaryDirectory&) = delete;
  SqliteTemporaryDirectory& operator=(const SqliteTemporaryDirectory&) = delete;

  // SQLite falls back to a small system folder when the one it was given is missing, so a missing one is
  // made; shared with other programs of the machine, hence the mode of a temporary folder.
  void MakeIfMissing() const;

 private:
  std::string path_;
};

}  // namespace updater
