// The upgrade of one volume's databases: copies, updaters, and the copies put in place.
#pragma once

#include "package/layout.h"
#include "updater/run_dependencies.h"
#include "updater/sqlite_temporary_directory.h"

namespace updater {

// While the object lives, SQLite's temporary files are on the volume: the check after the upgrade needs them
// there too.
class VolumeUpgrade {
 public:
  enum class Result {
    kNothingToDo,  // there is no data database
    kNewer,        // the data database is newer than this program, or cannot be opened
    kFailed,       // no live database was replaced by a copy of this run
    kUpgraded,     // the upgraded databases are in place
  };

  VolumeUpgrade(package::VolumePaths paths, bool with_legacy_steps, const RunDependencies& dependencies);

  [[nodiscard]] Result Run();
  [[nodiscard]] const package::VolumePaths& paths() const { return paths_; }

 private:
  [[nodiscard]] bool IsNewerOrCannotBeOpened() const;
  [[nodiscard]] bool MakeWorkingCopies();
  [[nodiscard]] bool RunLegacySteps();
  [[nodiscard]] bool CopyRemaining();
  [[nodiscard]] bool RunChain();

  package::VolumePaths paths_;
  SqliteTemporaryDirectory temporary_;
  bool with_legacy_steps_;
  const RunDependencies& dependencies_;
};

}  // namespace updater
