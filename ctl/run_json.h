// What a run has done, for programs.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "ctl/driver_run.h"
#include "ctl/output.h"
#include "ctl/volume_survey.h"

namespace ctl {

// Adds its fields to a document: the status, the times, what was on the volume before and after it, users,
// output and log. `allowed` are those that got the privilege to use the application.
void AddRun(const VolumeSurvey& before, const VolumeSurvey& after, const RunRecord& run,
            const std::vector<logger::RecordingSink::Line>& log, const std::set<std::string>& allowed,
            Json& json);

}  // namespace ctl
