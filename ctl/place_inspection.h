// What commands look for around the databases: whether an upgrade could begin, and replace what is there. All
// of it changes nothing.
#pragma once

#include "ctl/finding.h"
#include "ctl/package_state.h"
#include "package/layout.h"
#include "platform/platform.h"
#include "platform/system_paths.h"

namespace ctl {

// Whether updater-svr would start: the volume is mounted, and the status and the mark are those of the begin.
[[nodiscard]] Findings InspectStart(const ServiceState& service, const package::VolumePaths& paths,
                                    const platform::SystemPaths& system, const platform::Platform& platform);

// Folders that a package of `version` has, and that the updaters from there on need.
[[nodiscard]] Findings InspectNeededFolders(const package::PackagePaths& live, int version);

// The same, and links, mount points, and what cannot be replaced or is there too early.
[[nodiscard]] Findings InspectFolders(const VolumeSurvey& survey, const package::VolumePaths& paths,
                                      int version, const platform::Platform& platform);

// Logs of killed daemons, and processes that still use a database.
[[nodiscard]] Findings InspectUse(const VolumeSurvey& survey, const platform::SystemPaths& system);

// Whether there is space for the copies and for what the updaters make.
[[nodiscard]] Findings InspectSpace(const package::VolumePaths& paths);

}  // namespace ctl
