// The intent of a placement as a file in the sync folder: see placement_intent.h.
#pragma once

#include "package/layout.h"
#include "updater/placement_intent.h"

namespace updater {

// Writes it to the disk; when this returns true, it is there whole, also after a power failure. Returns false
// after logging "cannot write %s: %s (%d)\n"; then there is none, unless not even that could be brought
// about, and then it is whole.
[[nodiscard]] bool WriteIntent(const package::VolumePaths& paths, const Intent& intent);

// Adds what has become of the intent that is there, so that it counts from now on. Needs no rename: this is
// for moves that have failed. Result and line as above, but after a failure the one before counts.
[[nodiscard]] bool AppendIntent(const package::VolumePaths& paths, const Intent& intent);

enum class IntentFound {
  kNone,
  kValid,
  kUnusable,  // damaged, of another version, or no file
};

// Returns false after logging "cannot read %s: %s (%d)\n" when the disk does not tell; what stands there may
// be valid.
[[nodiscard]] bool ReadIntent(const package::VolumePaths& paths, IntentFound& found, Intent& intent);

// To be called when everything in it is on the disk. One that comes back after a power failure does nothing.
void RemoveIntent(const package::VolumePaths& paths);

// Moves an intent that must not be acted on out of the way, over one that was moved there before. Logs one
// line that ends with where it is.
void SetIntentAside(const package::VolumePaths& paths);

}  // namespace updater
