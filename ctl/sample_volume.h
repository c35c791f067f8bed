// A volume to try the upgrade on: real databases with made-up content in an ordinary folder.
#pragma once

#include <string>
#include <vector>

#include "ctl/made_folders.h"
#include "ctl/sample_content.h"
#include "updater/framework/server_updater.h"

namespace ctl {

// The versions that a sample can have: 2577, and all that updaters lead to.
[[nodiscard]] std::vector<int> SampleVersions();

// Makes the package's folders and its databases at version 2577 under `volume`; missing folders above it are
// made too. Returns 0, or -1 with the reason in `error`: a folder that holds the package's databases already
// is refused and left alone. What was made is for `made` to take back.
[[nodiscard]] int MakeSampleVolume(const std::string& volume, const SampleSize& size, MadeFolders& made,
                                   std::string& error);

// Brings a sample volume from 2577 to a later version by running the updaters on its live databases. Returns
// 0, or -1 with the reason in `error`, also when no updater leads to that version.
[[nodiscard]] int LiftSampleVolume(const std::string& volume, int version,
                                   const updater::UpdaterContext& context, std::string& error);

}  // namespace ctl
