#include "ctl/demo_state.h"

#include <fstream>

#include "base/path.h"
#include "updater/service_status.h"

namespace ctl {

std::string DefaultStateFolder(const std::string& volume) { return volume + "/@updater-ctl"; }

int PrepareState(const platform::SystemPaths& paths, platform::StateFiles& state_files, MadeFolders& made,
                 std::string& error) {
  for (const std::string* path : {&paths.package_enabled, &paths.service_status, &paths.upgrading_mark,
                                  &paths.scratch_database, &paths.user_lock}) {
    if (made.Make(base::FolderOf(*path), error) < 0) return -1;
  }
  updater::ServiceStatus status(paths, state_files);
  if (!std::ofstream(paths.package_enabled) || status.SetServiceStatus(updater::status::kInitializing) < 0) {
    error = "cannot write the package's state below " + paths.package_enabled;
    return -1;
  }
  return 0;
}

}  // namespace ctl
