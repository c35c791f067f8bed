// Whether everything that a placement replaces can be replaced.
#pragma once

#include "package/layout.h"
#include "updater/placement_intent.h"

namespace updater {

// Tries it: a probe is made beside every working copy and renamed to beside its target, which no other file
// system, read-only mount or protected folder lets happen. A target that is a mount point, immutable or
// append-only cannot be replaced either, nor a folder with such a thing in it. Nothing is left of the probes.
// Returns false after logging "cannot replace %s: %s (%d)\n" with the target and the reason.
[[nodiscard]] bool CanReplaceTargets(const package::VolumePaths& paths, const Intent& intent);

}  // namespace updater
