// 3400 to 3450: moves the rotation settings of views from the user database into their view databases, and
// ties profiles to views.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "updater/server/folder_updater.h"

namespace updater::server {

class SvrUpdater3400to3450 : public FolderUpdater {
 public:
  SvrUpdater3400to3450(const UpdaterContext& context, const std::string& data, const std::string& log,
                       const std::string& user, const std::string& client, const std::string& view_folder,
                       const std::string& file_folder);

 protected:
  [[nodiscard]] std::vector<Step> Steps() override;

 private:
  // How many versions a view keeps, by view id. Entry 0 stands for every user's view.
  using RotationMap = std::map<ViewId, int>;

  [[nodiscard]] int UpdateDatabases();
  [[nodiscard]] int ReadRotationMap(RotationMap& rotation) const;
  [[nodiscard]] int SpreadSharedEntry(RotationMap& rotation) const;
  [[nodiscard]] int UpdateViews(const RotationMap& rotation) const;
  [[nodiscard]] int UpdateView(const std::string& name, ViewId view, int rotate_cnt) const;
  [[nodiscard]] int RebuildProfileTable() const;
};

}  // namespace updater::server
