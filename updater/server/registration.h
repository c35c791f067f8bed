// The server updaters, in the order in which they are registered.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "updater/framework/server_updater.h"

namespace updater::server {

// Everything that the updaters of one run work on: the live sync folder, and the working copies.
struct WorkingCopies {
  std::string sync_folder;  // marker files, node_delta and rm are made in it
  std::string data;
  std::string log;
  std::string user;
  std::string client;
  std::string view_folder;
  std::string file_folder;
};

// One object for every edge of the version graph, ready to be run once. Where two chains are equally short,
// the updater that stands first is used.
[[nodiscard]] std::vector<std::unique_ptr<AbstractUpdater>> CreateServerUpdaters(
    const UpdaterContext& context, const WorkingCopies& copies);

}  // namespace updater::server
