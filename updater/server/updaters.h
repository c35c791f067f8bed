// One factory for each server updater. What it makes stands in svr_updater_<from>to<to>.cc, with its SQL.
#pragma once

#include <memory>

#include "updater/framework/server_updater.h"

namespace updater::server {

// `copies` are the paths of the working copies, as far as the updater has use for them.
using UpdaterFactory = std::unique_ptr<AbstractUpdater>(const UpdaterContext& context,
                                                        const PackagePaths& copies);

UpdaterFactory NewSvrUpdater2577to2603;
UpdaterFactory NewSvrUpdater2577to3004;
UpdaterFactory NewSvrUpdater2603to3004;
UpdaterFactory NewSvrUpdater3004to3200;
UpdaterFactory NewSvrUpdater3200to3300;
UpdaterFactory NewSvrUpdater3300to3400;
UpdaterFactory NewSvrUpdater3400to3450;
UpdaterFactory NewSvrUpdater3450to4000;
UpdaterFactory NewSvrUpdater4000to4060;
UpdaterFactory NewSvrUpdater4060to4100;
UpdaterFactory NewSvrUpdater4100to4150;

}  // namespace updater::server
