// The intent of a placement as a file in the sync folder: see placement_intent.h.
#pragma once

#include "package/layout.h"
#include "updater/placement_intent.h"

namespace updater {

// Writes it to the disk; when this returns true, it is there whole, also after a power failure. Returns false
// after logging "cannot write %s: %s (%d)\n"; then there is none, unless not even that could be brought
// about, and then it is whole. One that is not the first replaces another, and after a failure one of the two
// is there.
[[nodiscard]] bool WriteIntent(const package::VolumePaths& paths, const Intent& intent, bool is_first);

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
