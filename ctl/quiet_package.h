// Whether a package is at rest, so that all of its databases can be read, or replaced, as one set.
#pragma once

#include <sys/stat.h>

#include <string>

#include "package/layout.h"
#include "platform/system_paths.h"

namespace ctl {

// Returns 0, or -1 with the reason in `error`: an upgrade runs. Only looks.
[[nodiscard]] int CheckNoUpgrade(const platform::SystemPaths& system, std::string& error);

// Returns 0, or -1 with the reason in `error`: what is there is no set, as a run was stopped while it put
// databases in place, or it cannot be told whether. Only looks.
[[nodiscard]] int CheckNoCommit(const package::VolumePaths& paths, std::string& error);

// Returns 0, or -1 with the reason in `error`: an upgrade runs, the package's daemons do, or somebody has a
// database in use. Only looks.
[[nodiscard]] int CheckNobodyWorks(const package::VolumePaths& paths, const platform::SystemPaths& system,
                                   std::string& error);

// Whether somebody has this database in use, told in `error`. Only looks.
[[nodiscard]] bool IsInUse(const std::string& database, std::string& error);

// The same as the first, of the databases alone.
[[nodiscard]] int CheckUnused(const package::VolumePaths& paths, std::string& error);

// Tells whether an upgrade was started, or has run, since: before it looks at anything it makes its mark and
// changes the service status.
class UpgradeWatch {
 public:
  explicit UpgradeWatch(const platform::SystemPaths& system);
  // Returns 0, or -1 with the reason in `error`. Only looks.
  [[nodiscard]] int Check(std::string& error) const;
  // Whether one is running now.
  [[nodiscard]] bool IsRunning() const;

 private:
  [[nodiscard]] struct stat StatusFile() const;

  const platform::SystemPaths system_;
  const struct stat before_;
};

// The text that identifies the volume; empty where its file system has none.
[[nodiscard]] std::string ReadVolumeUuid(const std::string& volume);

}  // namespace ctl
