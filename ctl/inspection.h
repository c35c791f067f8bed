// What commands look for in the databases of a volume. All of it changes nothing.
#pragma once

#include "ctl/finding.h"
#include "ctl/volume_survey.h"
#include "package/layout.h"
#include "platform/platform.h"

namespace ctl {

enum class Integrity {
  kQuick,  // PRAGMA quick_check
  kFull,   // PRAGMA integrity_check, which reads every index, too
};

// Nothing where there is a data database: without it a run ends well and does nothing.
[[nodiscard]] Findings InspectData(const VolumeSurvey& survey, const package::PackagePaths& paths);

// The other databases that there is one of, and that updaters need at a version: attaching makes a missing
// one, and they then miss its tables.
[[nodiscard]] Findings InspectParts(const VolumeSurvey& survey, const package::PackagePaths& paths,
                                    int version);

// Every database page by page.
[[nodiscard]] Findings InspectIntegrity(const VolumeSurvey& survey, Integrity integrity);

// The layout of every database against that of a version. Of databases that have the same in common, one
// finding tells.
[[nodiscard]] Findings InspectLayouts(const VolumeSurvey& survey, int version);

// Whether it has the latest version.
[[nodiscard]] bool IsCurrent(const DatabaseSurvey& database);

// After an upgrade: the databases that do not have the latest version, and the layouts of the others. What
// has another version has another layout, too, and is told of for its version.
[[nodiscard]] Findings InspectUpgraded(const VolumeSurvey& survey);

// The views that users have, and the databases that there are; from 3400 on.
[[nodiscard]] Findings InspectViews(const VolumeSurvey& survey, const package::PackagePaths& paths);

// Whether so many users are removed that rather the machine lacks its accounts than that they are gone.
[[nodiscard]] bool AreMost(std::size_t removed, std::size_t users);

// The users that the check after an upgrade would remove on this machine.
[[nodiscard]] Findings InspectUsers(const package::PackagePaths& paths, const platform::Platform& platform);

// The volumes that this check would take for others than those recorded. `version` is that of the data
// database, which below 4000 may hold the old form of a btrfs volume's uuid.
[[nodiscard]] Findings InspectVolumes(const package::PackagePaths& paths, int version,
                                      const platform::Platform& platform);

}  // namespace ctl
