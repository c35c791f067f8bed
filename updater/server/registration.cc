#include "updater/server/registration.h"

#include "updater/server/svr_updater_2577to2603.h"
#include "updater/server/svr_updater_2577to3004.h"
#include "updater/server/svr_updater_2603to3004.h"
#include "updater/server/svr_updater_3004to3200.h"
#include "updater/server/svr_updater_3200to3300.h"
#include "updater/server/svr_updater_3300to3400.h"
#include "updater/server/svr_updater_3400to3450.h"
#include "updater/server/svr_updater_3450to4000.h"
#include "updater/server/svr_updater_4000to4060.h"
#include "updater/server/svr_updater_4060to4100.h"
#include "updater/server/svr_updater_4100to4150.h"

namespace updater::server {

std::vector<std::unique_ptr<AbstractUpdater>> CreateServerUpdaters(const UpdaterContext& context,
                                                                   const WorkingCopies& copies) {
  const auto& [sync, data, log, user, client, views, files] = copies;
  std::vector<std::unique_ptr<AbstractUpdater>> updaters;
  updaters.push_back(std::make_unique<SvrUpdater2577to3004>(context, data, user, client));
  updaters.push_back(std::make_unique<SvrUpdater2603to3004>(context, data, user, client));
  updaters.push_back(std::make_unique<SvrUpdater2577to2603>(context, data, user, client));
  updaters.push_back(std::make_unique<SvrUpdater3004to3200>(context, sync, data, user, client));
  updaters.push_back(std::make_unique<SvrUpdater3200to3300>(context, data, log, user, client));
  updaters.push_back(
      std::make_unique<SvrUpdater3300to3400>(context, sync, data, log, user, client, views, files));
  updaters.push_back(std::make_unique<SvrUpdater3400to3450>(context, data, log, user, client, views, files));
  updaters.push_back(std::make_unique<SvrUpdater3450to4000>(context, data, log, user, client, views, files));
  updaters.push_back(std::make_unique<SvrUpdater4000to4060>(context, data, log, user, client, views, files));
  updaters.push_back(std::make_unique<SvrUpdater4060to4100>(context, data, log, user, client, views, files));
  updaters.push_back(std::make_unique<SvrUpdater4100to4150>(context, data, log, user, client, views, files));
  return updaters;
}

}  // namespace updater::server
