// The server updaters, in the order in which they are registered.
#pragma once

#include <memory>
#include <vector>

#include "updater/framework/server_updater.h"

namespace updater::server {

// One object for every edge of the version graph, ready to be run once on the working copies. Marker files,
// node_delta and rm are made in the live sync folder. Where two chains are equally short, the updater that
// stands first is used.
[[nodiscard]] std::vector<std::unique_ptr<AbstractUpdater>> CreateServerUpdaters(
    const UpdaterContext& context, const PackagePaths& copies);

}  // namespace updater::server
