// 3004 to 3200: the node delta folder, the activity log, user profiles, and nodes that carry the columns of
// their current version.
#pragma once

#include <string>

#include "updater/server/early_updater.h"

namespace updater::server {

class SvrUpdater3004to3200 : public EarlyUpdater {
 public:
  SvrUpdater3004to3200(const UpdaterContext& context, const std::string& sync_folder, const std::string& data,
                       const std::string& user, const std::string& client);

 private:
  [[nodiscard]] int UpdateDatabases() override;
  [[nodiscard]] int CreateNodeDeltaFolder() const;
  [[nodiscard]] int UpdateDatabaseSchema() const;
  [[nodiscard]] int UpdateRedundantNodeTable() const;

  std::string sync_folder_;
};

}  // namespace updater::server
