// 4100 to 4150: rebuilds the tables of every view database with `removed` and `file_type` in place of the
// bits of `attribute`.
#pragma once

#include <string>
#include <vector>

#include "updater/server/folder_updater.h"

namespace updater::server {

class SvrUpdater4100to4150 : public FolderUpdater {
 public:
  SvrUpdater4100to4150(const UpdaterContext& context, const std::string& data, const std::string& log,
                       const std::string& user, const std::string& client, const std::string& view_folder,
                       const std::string& file_folder);

 protected:
  [[nodiscard]] std::vector<Step> Steps() override;

 private:
  [[nodiscard]] int UpdateViews();
  [[nodiscard]] int Rebuild(ViewId view) const;
};

}  // namespace updater::server
