// 2577 to 2603, a side branch: only the markers of the folders of stored files, and the name of the server
// client.
#pragma once

#include <string>

#include "updater/server/early_updater.h"

namespace updater::server {

class SvrUpdater2577to2603 : public EarlyUpdater {
 public:
  SvrUpdater2577to2603(const UpdaterContext& context, const std::string& data, const std::string& user,
                       const std::string& client);

 private:
  [[nodiscard]] int UpdateDatabases() override;
};

}  // namespace updater::server
