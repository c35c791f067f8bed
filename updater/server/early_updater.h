// What the updaters of the undivided layout have in common: the whole file tree is in the data database, and
// the step that changes the databases is one.
#pragma once

#include <vector>

#include "updater/framework/server_updater.h"

namespace updater::server {

class EarlyUpdater : public ServerUpdater {
 protected:
  EarlyUpdater(const UpdaterContext& context, Version from, Version to, DatabaseSet databases,
               DatabasePaths paths);

  // The changes of the unit. Returns 0, or -1 after logging what failed.
  [[nodiscard]] virtual int UpdateDatabases() = 0;

  // Makes the empty files repo/.0 and delta/.0 beside the data database, in folders that must be there.
  // Returns 0, or -1 after logging "failed to create empty file\n"; the first then stays.
  [[nodiscard]] int CreateMarkerFiles() const;

 private:
  [[nodiscard]] std::vector<Step> Steps() final;
};

}  // namespace updater::server
