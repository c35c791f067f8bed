// 2577 to 3004: versions get access rights and share privileges, and the folders of stored files their
// markers.
#pragma once

#include <string>

#include "updater/server/early_updater.h"

namespace updater::server {

class SvrUpdater2577to3004 : public EarlyUpdater {
 public:
  SvrUpdater2577to3004(const UpdaterContext& context, const std::string& data, const std::string& user,
                       const std::string& client);

 private:
  [[nodiscard]] int UpdateDatabases() override;
};

}  // namespace updater::server
