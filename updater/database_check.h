// The consistency check against the machine: users who are gone lose their views, volumes that are gone or
// were made anew lose their records.
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/system_paths.h"
#include "updater/consistency_check.h"

namespace updater {

// Both arguments of the constructor are borrowed. Its own messages go to the system log at LOG_ERR.
class DatabaseCheck : public ConsistencyCheck {
 public:
  DatabaseCheck(const platform::SystemPaths& system, const platform::Platform& platform)
      : system_(system), platform_(platform) {}

  // Works on the live databases of the run. Nothing that was deleted is restored when a later step fails.
  // After a failure while the records of a changed volume are being removed, the databases are left open: the
  // process ends shortly after.
  [[nodiscard]] int Run(const package::VolumePaths& paths) override;

 private:
  [[nodiscard]] bool CheckUsers(const package::VolumePaths& paths);
  [[nodiscard]] bool FindChangedVolumes(std::vector<std::string>& changed);

  const platform::SystemPaths& system_;
  const platform::Platform& platform_;
};

}  // namespace updater
