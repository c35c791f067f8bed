#include "ctl/look_arguments.h"

#include <unistd.h>

#include <filesystem>

#include "base/errno.h"
#include "package/layout.h"

namespace ctl {

std::shared_ptr<LookArguments> AddLookArguments(Arguments& command) {
  auto arguments = std::make_shared<LookArguments>();
  command.AddPath("volume", arguments->volume, "The volume: the folder that holds @stratofolder").Require();
  command
      .AddPath("--state", arguments->state,
               "The folder of the package's state files (default: those of this machine)")
      .RequireFolder();
  command.AddJsonFlag(arguments->is_json);
  return arguments;
}

platform::SystemPaths SystemOf(const LookArguments& arguments) {
  return arguments.state.empty() ? platform::SystemPaths() : platform::SystemPaths::Under(arguments.state);
}

int FindPackage(const std::string& argument, std::string& volume, std::string& error) {
  std::error_code failure;
  volume = std::filesystem::canonical(argument, failure).string();
  const package::VolumePaths paths(failure ? argument : volume);
  // Looking needs to list the folders.
  const bool can_look = !failure && access(paths.package_folder.c_str(), R_OK | X_OK) == 0 &&
                        access(paths.live.sync_folder.c_str(), R_OK | X_OK) == 0;
  if (can_look) return 0;
  const base::Errno reason = failure ? base::Errno(failure.value()) : base::Errno::Last();
  if (reason.number() == ENOENT || reason.number() == ENOTDIR) {
    error = "'" + argument + "' is no volume with a package on it: no folder " + paths.live.sync_folder;
  } else {
    error = "cannot look into " + paths.live.sync_folder + ": " + reason.Text();
  }
  return -1;
}

}  // namespace ctl
