// Registers updaters, reads the current version of a database, and runs the shortest chain of updaters.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "updater/framework/abstract_updater.h"
#include "updater/framework/run_observer.h"

namespace updater {

class UpdaterFramework {
 public:
  // `out` takes the progress lines; `observer` may be null.
  explicit UpdaterFramework(std::ostream& out, RunObserver* observer = nullptr);

  // Takes the updater; neither duplicates nor null are checked for.
  void AddUpdater(std::unique_ptr<AbstractUpdater> updater);

  // The version that the database at `database_path` holds. Returns 0, or -1 with
  // `out` untouched, after logging the file and the reason: see ReadStoredVersion().
  [[nodiscard]] static int GetCurrentVersion(const std::string& database_path, Version& out);

  // Runs the chain with the fewest updaters. Returns 0 (also when `current` is the target), -1 when there is
  // no chain, -2 when an updater failed; the reason is then in GetLastError(). What the updaters before a
  // failing one wrote is not undone.
  [[nodiscard]] int Run(const Version& current, const Version& target);

  [[nodiscard]] const std::string& GetLastError() const { return last_error_; }

 private:
  [[nodiscard]] int RunOne(AbstractUpdater& updater, StepNumber step);

  std::ostream& out_;
  RunObserver* observer_;
  std::vector<std::unique_ptr<AbstractUpdater>> updaters_;
  std::string last_error_;
};

}  // namespace updater
