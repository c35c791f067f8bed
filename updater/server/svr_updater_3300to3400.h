// 3300 to 3400: splits the data database into one view database per view, one file database for the home
// volume, and a small new data database that takes the old one's place.
#pragma once

#include <string>
#include <vector>

#include "updater/framework/server_updater.h"
#include "updater/framework/view_databases.h"

namespace updater::server {

class SvrUpdater3300to3400 : public ServerUpdater {
 public:
  SvrUpdater3300to3400(const UpdaterContext& context, const std::string& sync_folder, const std::string& data,
                       const std::string& log, const std::string& user, const std::string& client,
                       const std::string& view_folder, const std::string& file_folder);

 protected:
  [[nodiscard]] std::vector<Step> Steps() override;

 private:
  [[nodiscard]] int CreateFolders() const;

  [[nodiscard]] int SplitDatabases();
  [[nodiscard]] int SplitViews() const;
  [[nodiscard]] int SplitView(ViewId view) const;
  [[nodiscard]] int CopyViewRows(ViewId view) const;
  [[nodiscard]] int SplitFiles() const;
  [[nodiscard]] int CopyFileRows() const;
  [[nodiscard]] int UpdateUserDatabase() const;

  [[nodiscard]] int ReplaceDataDatabase() const;
  [[nodiscard]] int FillNewDataDatabase() const;
  [[nodiscard]] int InsertViewSyncIds() const;
  [[nodiscard]] int ReattachDataDatabase() const;
  [[nodiscard]] int MoveNewDataDatabase() const;

  std::string sync_folder_;
  std::string new_data_database_;
  FolderDatabases folders_;
  std::string home_uuid_;  // of the volume that holds the sync folder; known from the start of the split
};

}  // namespace updater::server
