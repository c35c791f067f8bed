// Putting the upgraded working copies in place of the live databases.
//
// A write-ahead log or rollback journal is not tied to its database: left beside a path, it is replayed into
// whatever file is renamed there, and the upgraded database silently goes back to old content. Removing it
// is wrong, too, because a copy's own log may hold committed rows. So every database is
// checkpointed first, live and copy, until its file alone is the whole database; then a rename is all it
// takes.
#pragma once

#include "package/layout.h"

namespace updater {

// Makes everything ready that can fail. Checkpoints the working copies, brings them to the disk, and only
// then checkpoints their live counterparts, which are not replaced yet; a live database that is not there
// loses the companions that a former one left. Live view and file databases are not: their restores remove
// them with their companions before the copy moves in, so nothing that is still wanted can be in there. Last
// of all it makes the placing mark.
//
// Returns 0, or -1 after a line in the system log; no live database has lost or changed content then.
[[nodiscard]] int PreparePlacement(const package::VolumePaths& paths);

// Moves every working copy over its live database or folder, and brings the folders to the disk. A part that
// has no working copy is skipped, a part that cannot be moved does not keep the others back. No companion
// file of a moved database is left. The placing mark goes, unless a working copy is all there is of its part.
// To be called after PreparePlacement succeeded.
void PlaceWorkingCopies(const package::VolumePaths& paths);

// Deals with the working copies of parts that have no live one, before new copies are made. Those of a failed
// run are removed: they would be put in place as if they were this run's. Those of a run that ended while it
// was putting them in place are the only ones that hold the rows which the data database in place has given
// away, so they are put in place now. They are such copies if the placing mark is there and the copy of the
// data database is not: it is moved before the parts that depend on it.
//
// Returns 0, or -1 after a line in the system log; no working copy that is wanted is lost then.
[[nodiscard]] int SettleFormerCopies(const package::VolumePaths& paths);

}  // namespace updater
