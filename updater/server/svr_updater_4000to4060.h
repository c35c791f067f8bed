// 4000 to 4060: gives every view database the rotation policy of its settings row.
#pragma once

#include <string>
#include <vector>

#include "updater/server/folder_updater.h"

namespace updater::server {

class SvrUpdater4000to4060 : public FolderUpdater {
 public:
  SvrUpdater4000to4060(const UpdaterContext& context, const std::string& data, const std::string& log,
                       const std::string& user, const std::string& client, const std::string& view_folder,
                       const std::string& file_folder);

 protected:
  [[nodiscard]] std::vector<Step> Steps() override;
};

}  // namespace updater::server
