// The server updaters, in the order in which they are registered.
#pragma once

#include <memory>
#include <vector>

#include "updater/framework/server_updater.h"

namespace updater::server {

// One object for every edge of the version graph, ready to be run once on the working copies. In the live
// sync folder they make the marker files, node_delta, the folders in rm, and, until it is renamed,
// new-syncfolder.sqlite. Of two updaters between the same versions the one that stands first is used; of two
// chains of equal length UpdateGraph::ShortestPath() tells which.
[[nodiscard]] std::vector<std::unique_ptr<AbstractUpdater>> CreateServerUpdaters(
    const UpdaterContext& context, const PackagePaths& copies);

}  // namespace updater::server
