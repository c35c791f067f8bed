// 3200 to 3300: the activity log and its settings move from the data database to a log database of their own.
#pragma once

#include <string>

#include "updater/server/early_updater.h"

namespace updater::server {

class SvrUpdater3200to3300 : public EarlyUpdater {
 public:
  SvrUpdater3200to3300(const UpdaterContext& context, const std::string& data, const std::string& log,
                       const std::string& user, const std::string& client);

 private:
  [[nodiscard]] int UpdateDatabases() override;
  // Gives the space of the log back, also after a failed run; its failures are only logged.
  void AfterDisconnect() override;
};

}  // namespace updater::server
