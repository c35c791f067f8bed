// What the updaters of the split layout have in common: four shared databases, and one database per view and
// per volume in their folders, which all get the new version.
#pragma once

#include <functional>
#include <string>

#include "updater/framework/server_updater.h"
#include "updater/framework/view_databases.h"

namespace updater::server {

class FolderUpdater : public ServerUpdater {
 protected:
  FolderUpdater(const UpdaterContext& context, int from, int to, SuccessLine success, DatabasePaths paths,
                FolderDatabases folders);

  [[nodiscard]] const FolderDatabases& folders() const { return folders_; }

  // Calls `work` for every view of the user table until it fails. Returns 0, or -1 after logging
  // "Failed to get all views\n" or what `work` logged.
  [[nodiscard]] int ForEachView(const std::function<int(ViewId)>& work);

  // Runs `body` with the database of the view attached as view_db, as one script.
  [[nodiscard]] int ExecOnView(ViewId view, const std::string& body);

  // Runs the statements on every view, with the number of its row in rotate_setting_table put in. Returns 0,
  // or -1 after logging "failed to get user type of view %llu\n", or "Failed to update rotate_cnt for view
  // %llu\n" and "Failed to update rotate count for view %llu\n".
  [[nodiscard]] int UpdateViewRotations(const logger::SqlFormat<long long>& statements);

 private:
  [[nodiscard]] int ListVersionFolders() final;
  [[nodiscard]] int UpdateFolderVersions() final;

  FolderDatabases folders_;
};

}  // namespace updater::server
