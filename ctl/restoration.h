// Putting a save back: what is in it becomes working copies, and these are put in place as those of an
// upgrade.
#pragma once

#include <string>

#include "ctl/quiet_package.h"
#include "ctl/save_archive.h"
#include "package/layout.h"

namespace ctl {

// Whether there is space beside the live parts for everything in the save. Returns 0, or -1 with the reason
// in `error`. Only looks.
[[nodiscard]] int CheckSpace(const package::VolumePaths& paths, const SaveManifest& manifest,
                             std::string& error);

enum class Restored {
  kYes,
  kNo,         // everything is as it was; no working copy is left
  kCommitted,  // what could not be put in place yet is put there by the next restore, or the next upgrade
};

// Replaces everything live by what is in the save, all of it or nothing. The reader was read through
// once, and is read again. Nobody was at work when `watch` was made; an upgrade that was started since is
// left alone, with its working copies. `error` has the reason of anything but kYes.
[[nodiscard]] Restored Restore(const package::VolumePaths& paths, SaveReader& save, const UpgradeWatch& watch,
                               std::string& error);

// Makes the empty files and folders that upgrades make beside the databases as they were: those that are
// missing are made, those that the save does not have go if they are empty. Nothing depends on them alone, so
// what does not work is left.
void RestoreMarkers(const package::VolumePaths& paths, const SaveManifest& manifest);

}  // namespace ctl
