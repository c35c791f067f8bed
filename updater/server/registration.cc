#include "updater/server/registration.h"

#include "updater/server/updaters.h"

namespace updater::server {
namespace {

constexpr UpdaterFactory* kUpdaters[] = {
    NewSvrUpdater2577to3004, NewSvrUpdater2603to3004, NewSvrUpdater2577to2603, NewSvrUpdater3004to3200,
    NewSvrUpdater3200to3300, NewSvrUpdater3300to3400, NewSvrUpdater3400to3450, NewSvrUpdater3450to4000,
    NewSvrUpdater4000to4060, NewSvrUpdater4060to4100, NewSvrUpdater4100to4150,
};

}  // namespace

std::vector<std::unique_ptr<AbstractUpdater>> CreateServerUpdaters(const UpdaterContext& context,
                                                                   const PackagePaths& copies) {
  std::vector<std::unique_ptr<AbstractUpdater>> updaters;
  for (UpdaterFactory* const create : kUpdaters) updaters.push_back(create(context, copies));
  return updaters;
}

}  // namespace updater::server
