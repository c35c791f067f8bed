// 2603 to 3004: from the side branch back to master. Markers and client names are there already.
#pragma once

#include <string>

#include "updater/server/early_updater.h"

namespace updater::server {

class SvrUpdater2603to3004 : public EarlyUpdater {
 public:
  SvrUpdater2603to3004(const UpdaterContext& context, const std::string& data, const std::string& user,
                       const std::string& client);

 private:
  [[nodiscard]] int UpdateDatabases() override;
};

}  // namespace updater::server
