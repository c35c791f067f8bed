// The state of the package on a volume, and of the runs on it: what stands there now, without a look into the
// rows.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "ctl/finding.h"
#include "ctl/volume_survey.h"
#include "package/layout.h"
#include "platform/state_files.h"
#include "platform/system_paths.h"

namespace ctl {

// The word for the package's state, and the mark of a run.
struct ServiceState {
  std::string status;  // as every reader sees it
  std::string stored;  // the word in the file; empty without one
  bool is_enabled = false;
  std::optional<pid_t> marked_by;  // 0: there is a mark that names no process
  bool is_marker_alive = false;
};

// What a run was putting in place, and has not finished.
struct PendingCommit {
  enum class State { kValid, kDamaged, kUnreadable };
  State state;
  std::size_t parts = 0;
  std::size_t placed = 0;
  std::vector<std::string> changed = {};  // live paths that somebody has written to since
};

struct PackageState {
  ServiceState service;
  std::optional<PendingCommit> commit;
  VolumeSurvey survey;              // without rows
  std::vector<std::string> copies;  // working copies that a run has left
};

// Change nothing.
[[nodiscard]] ServiceState ReadServiceState(const platform::SystemPaths& system,
                                            platform::StateFiles& state_files);
[[nodiscard]] PackageState ReadPackageState(const package::VolumePaths& paths,
                                            const platform::SystemPaths& system,
                                            platform::StateFiles& state_files);

// What is wrong with a volume that nobody upgrades at the moment.
[[nodiscard]] Findings FindingsOf(const PackageState& state, const package::VolumePaths& paths);

}  // namespace ctl
