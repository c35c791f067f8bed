#include "updater/server/early_updater.h"

#include <utility>

namespace updater::server {

EarlyUpdater::EarlyUpdater(const UpdaterContext& context, Version from, Version to, DatabaseSet databases,
                           DatabasePaths paths)
    : ServerUpdater(context,
                    {.from = std::move(from),
                     .to = std::move(to),
                     .databases = databases,
                     .scope = VersionScope::kThree,
                     .success = SuccessLine::kStandardOutput},
                    std::move(paths)) {}

std::vector<ServerUpdater::Step> EarlyUpdater::Steps() {
  return {{[this] { return UpdateDatabases(); }, "failed to update databases\n"}};
}

int EarlyUpdater::CreateMarkerFiles() const {
  const std::string folder = GetParentDir(paths().data);
  return logger::Succeeded(CreateEmptyFile(folder + "/repo/.0"), "failed to create empty file\n") &&
                 logger::Succeeded(CreateEmptyFile(folder + "/delta/.0"), "failed to create empty file\n")
             ? 0
             : -1;
}

}  // namespace updater::server
