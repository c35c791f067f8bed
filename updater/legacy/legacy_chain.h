// The first-generation updaters, which change their databases in place. They run only on request, before the
// server updaters, and bring databases older than 2577 to 2577. docs/legacy.md tells which ones.
#pragma once

#include <vector>

#include "base/interface.h"
#include "package/layout.h"
#include "updater/legacy/legacy_step.h"

namespace updater::legacy {

class LegacyChain : public base::Interface {
 public:
  // Runs step V<number> on the working copies: 1 and 3 to 11, in this order; there is no V2. The client
  // working copy exists from V7 on. Returns 0 or above when the databases are ready for the next step, a
  // negative value on failure.
  [[nodiscard]] virtual int RunStep(int number, const package::VolumePaths& paths) = 0;
};

// The steps, which are all made with the chain.
class LegacySteps : public LegacyChain {
 public:
  LegacySteps() : steps_(kSteps.begin(), kSteps.end()) {}

  [[nodiscard]] int RunStep(int number, const package::VolumePaths& paths) override;

 private:
  std::vector<LegacyStep> steps_;
};

}  // namespace updater::legacy
