// What is on a volume, for programs.
#pragma once

#include "ctl/output.h"
#include "ctl/volume_survey.h"

namespace ctl {

// "data", "log", "user", "client", "view" or "file".
[[nodiscard]] const char* KindName(const DatabaseSurvey& database);

// Kind, name, branch, version, error, bytes and the number of rows by table: what tells whether the content
// of a database is still the same, wherever it lies.
[[nodiscard]] Json ContentOf(const DatabaseSurvey& database);
// That of each.
[[nodiscard]] Json ContentsOf(const VolumeSurvey& survey);

}  // namespace ctl
