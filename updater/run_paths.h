// The live paths of one volume and the working copies beside them.
#pragma once

#include <string>

#include "updater/server/registration.h"

namespace updater {

struct RunPaths {
  // `volume` is used exactly as given: nothing is normalised, a trailing slash stays.
  explicit RunPaths(const std::string& volume);

  // What the updaters are given.
  [[nodiscard]] server::WorkingCopies ForUpdaters() const;

  std::string volume;
  std::string temporary_folder;  // for SQLite's own temporary files
  std::string sync_folder;
  std::string user_db;
  std::string data_db;
  std::string log_db;
  std::string client_db;
  std::string view_folder;
  std::string file_folder;
  std::string client_sync_folder;  // only the legacy chain looks at it

  std::string user_copy;
  std::string data_copy;
  std::string log_copy;
  std::string client_copy;
  std::string view_copy;
  std::string file_copy;

  std::string placing_mark;  // is there while working copies are put in place
};

}  // namespace updater
