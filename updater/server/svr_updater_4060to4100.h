// 4060 to 4100: stores the session that committed a version, and lets the log database shrink by itself.
#pragma once

#include <string>
#include <vector>

#include "updater/server/folder_updater.h"

namespace updater::server {

class SvrUpdater4060to4100 : public FolderUpdater {
 public:
  SvrUpdater4060to4100(const UpdaterContext& context, const std::string& data, const std::string& log,
                       const std::string& user, const std::string& client, const std::string& view_folder,
                       const std::string& file_folder);

 protected:
  [[nodiscard]] std::vector<Step> Steps() override;

 private:
  [[nodiscard]] int UpdateViews();
  [[nodiscard]] int UpdateLogDatabase();
};

}  // namespace updater::server
