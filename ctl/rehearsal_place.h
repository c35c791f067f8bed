// Where a rehearsal is made, and the copies it is made on.
#pragma once

#include <optional>
#include <string>

#include "base/file_descriptor.h"
#include "ctl/finding.h"
#include "ctl/short_lived_folder.h"
#include "package/layout.h"
#include "platform/system_paths.h"
#include "updater/free_space.h"

namespace ctl {

// What there is on the file system of the copies.
struct Room {
  updater::Space space = {};
  bool shares_blocks = false;  // copies take no room there until they are changed

  [[nodiscard]] unsigned long long Needed() const {
    return space.needed + (shares_blocks ? 0 : space.databases);
  }
};

struct RehearsalPlace {
  std::string volume;           // the real one, links resolved
  base::FileDescriptor lock;    // on it
  ShortLivedFolder folder;      // of the copies: it stands for the volume
  platform::SystemPaths paths;  // of the run's own state, below the folder
  Room room;
};

// Finds the volume and makes the folder for its copies: `into` or, without that, a new one on the
// volume. Refuses a volume on which a run is going on or has stopped in the middle of putting its copies in
// place, and a folder on whose file system there is too little room. `system` has the paths of the real
// machine. Returns 0, or -1 with the reason in `error`; nothing is left then.
[[nodiscard]] int TakeRehearsalPlace(const std::string& volume, const std::optional<std::string>& into,
                                     const platform::SystemPaths& system, RehearsalPlace& place,
                                     std::string& error);

// Copies all databases with their companions, as an upgrade does, and makes the folders beside them, empty
// but for marker files. What the copies lack is told in `findings`. Returns 0, or -1 with the reason in
// `error`.
[[nodiscard]] int CopyPackage(const package::VolumePaths& from, const package::VolumePaths& to,
                              Findings& findings, std::string& error);

}  // namespace ctl
