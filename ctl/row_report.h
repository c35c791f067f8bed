// How many rows an upgrade has added and taken away.
#pragma once

#include <iosfwd>

#include "ctl/volume_survey.h"

namespace ctl {

// One line for every table that has another number of rows in `after` than in `before`, or is in one of them
// only, and a total for every kind of database. All views count as one database, and so do all file
// databases, and "content" is these two and the data database, which the split at 3400 moves rows between.
// Databases that could not be counted are told.
void PrintRowChanges(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out);

}  // namespace ctl
