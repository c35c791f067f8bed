// Putting the upgraded working copies in place of the live databases: all of them, or none.
//
// A write-ahead log or rollback journal is not tied to its database: left beside a path, it is replayed into
// whatever file is renamed there, and the upgraded database silently goes back to old content. Removing it
// is wrong, too, because a copy's own log may hold committed rows. So every database is
// checkpointed first, live and copy, until its file alone is the whole database; then a rename is all it
// takes.
//
// The renames are several. What makes them one is the intent: it is on the disk before the first of them, and
// goes when all are on the disk. A run that finds an intent finishes it before it looks at anything.
#pragma once

#include "package/layout.h"
#include "updater/file_systems.h"
#include "updater/placement_intent.h"

namespace updater {

// Makes everything ready that can fail: checkpoints the working copies, tries whether all targets can be
// replaced, brings the copies to the disk, checkpoints the live databases that they replace, and writes the
// intent. `file_systems` were opened before the copies were made. Returns 0, or -1 after a line in the system
// log; no live database has lost or changed content then, and there is no intent (but see WriteIntent).
//
// A restore's working copies are put in place by FinishFormerPlacement: what it does for a run that was
// stopped right after the commit point.
[[nodiscard]] int PreparePlacement(const package::VolumePaths& paths, const FileSystems& file_systems,
                                   PlacementKind kind = PlacementKind::kUpgrade);

// Moves every working copy over its live database or folder, and brings that to the disk. A part that has no
// working copy is skipped; a part that cannot be moved does not keep the others back and is tried once more
// at the end. No companion file of a moved database is left. The intent stays if anything in it is left to be
// done, or may not be on the disk. To be called after PreparePlacement succeeded.
void PlaceWorkingCopies(const package::VolumePaths& paths, const FileSystems& file_systems);

// Takes what was written to live databases since for this program's own: to be called after the check that
// follows the moves and before anybody else may write. Where a move has failed, the intent stays, and the
// next run would take the changes of the check for somebody's. Does nothing without an intent; failures are
// logged, and leave the intent as it was.
void AcceptLiveChanges(const package::VolumePaths& paths);

// Finishes the intent of a former run that was stopped in between, and logs a line about it. A part that
// somebody has changed since is left as it is, with a line. An intent by which nothing was moved yet and
// something was changed since is set aside with a line. So is one that is damaged, and where something
// may have been moved, every working copy that there is.
//
// Returns 0, or -1 after a line. Where a part was not put in place, the intent stays, and the working copies
// must not be touched; somebody has to see to it. After a set of copies was set aside, too, but only once.
[[nodiscard]] int FinishFormerPlacement(const package::VolumePaths& paths);

// Removes the working copies of parts that have no live one, before new copies are made: they would be put in
// place as if they were this run's. Returns 0, or -1 after a line in the system log.
[[nodiscard]] int RemoveStaleCopies(const package::VolumePaths& paths);

// Removes all working copies. Result and line as above.
[[nodiscard]] int RemoveAllCopies(const package::VolumePaths& paths);

}  // namespace updater
