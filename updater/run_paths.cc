#include "updater/run_paths.h"

namespace updater {
namespace {

constexpr const char* kCopySuffix = ".bak";

}  // namespace

RunPaths::RunPaths(const std::string& volume_path)
    : volume(volume_path),
      temporary_folder(volume_path + "/@tmp"),
      sync_folder(volume_path + "/@stratofolder/@sync"),
      user_db(sync_folder + "/user-db.sqlite"),
      data_db(sync_folder + "/syncfolder-db.sqlite"),
      log_db(sync_folder + "/log-db.sqlite"),
      client_db(volume_path + "/@stratofolder/@clientd/db.sqlite"),
      view_folder(sync_folder + "/view"),
      file_folder(sync_folder + "/file"),
      client_sync_folder(volume_path + "/@stratofolder/@sync-client"),
      user_copy(user_db + kCopySuffix),
      data_copy(data_db + kCopySuffix),
      log_copy(log_db + kCopySuffix),
      client_copy(client_db + kCopySuffix),
      view_copy(view_folder + kCopySuffix),
      file_copy(file_folder + kCopySuffix),
      placing_mark(sync_folder + "/.upgrade-commit") {}

server::WorkingCopies RunPaths::ForUpdaters() const {
  return {.sync_folder = sync_folder,
          .data = data_copy,
          .log = log_copy,
          .user = user_copy,
          .client = client_copy,
          .view_folder = view_copy,
          .file_folder = file_copy};
}

}  // namespace updater
