// The parts that a placement puts in place: where they lie, and how far each of them is.
#pragma once

#include <array>
#include <string>

#include "base/errno.h"
#include "package/layout.h"
#include "updater/placement_intent.h"

namespace updater {

using PartPath = std::string package::PackagePaths::*;

// The databases of kDatabaseParts.
inline constexpr std::array<PartPath, kDatabaseParts.size()> kDatabases = {
    &package::PackagePaths::user, &package::PackagePaths::data, &package::PackagePaths::log,
    &package::PackagePaths::client};

// Where the part of an item lies, as working copy and live.
struct ItemPaths {
  std::string copy;
  std::string live;
};
[[nodiscard]] ItemPaths PathsOf(const package::VolumePaths& paths, const IntentItem& item);

// Lists everything that the moves will do, in their order, with the identities of now. Returns false after
// logging "cannot examine %s: %s (%d)\n"; a working copy that is neither a file nor a folder is such a
// failure.
[[nodiscard]] bool ListItems(const package::VolumePaths& paths, PlacementKind kind, Intent& intent);

enum class ItemState {
  kDone,
  kPending,  // can be made now, as it could be when the intent was written
  kChanged,  // somebody has replaced or written to what is to be moved or replaced
};

// How far an item is. Returns false after the line of ListItems.
[[nodiscard]] bool GetItemState(const package::VolumePaths& paths, const IntentItem& item, ItemState& state);

// Where the working copy is still the one that is to be moved, the live part counts from now on as it is now.
// Tells whether that changes the item. Returns false after the line of ListItems.
[[nodiscard]] bool AcceptLive(const package::VolumePaths& paths, IntentItem& item, bool& is_changed);

}  // namespace updater
