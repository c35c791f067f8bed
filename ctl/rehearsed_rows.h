// The rows that a rehearsal has told of, compared with those that the real upgrade left.
#pragma once

#include <string>

#include "ctl/finding.h"
#include "ctl/volume_survey.h"

namespace ctl {

// Reads what `updater-ctl rehearse --json` wrote to the file at `path`. Returns 0, or -1 with the reason in
// `error`: it cannot be read, is cut short, is no such document or one of another version, or the upgrade
// would have failed, so that the rows after it say nothing.
[[nodiscard]] int ReadRehearsal(const std::string& path, Json& rehearsal, std::string& error);

// Every database that only one of them has, and every table with another number of rows. `survey` is the one
// of the volume at the path `volume`, with rows.
[[nodiscard]] Findings CompareRows(const Json& rehearsal, const std::string& volume,
                                   const VolumeSurvey& survey);

}  // namespace ctl
