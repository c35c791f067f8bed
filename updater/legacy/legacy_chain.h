// The first-generation updaters, which change their databases in place. They run only on request, before the
// server updaters, and bring databases older than 2577 to 2577.
#pragma once

#include "base/interface.h"
#include "package/layout.h"

namespace updater::legacy {

class LegacyChain : public base::Interface {
 public:
  // Runs step V<number> on the working copies: 1 and 3 to 11, in this order; there is no V2. The client
  // working copy exists from V7 on. Returns 0 or above when the databases are ready for the next step, a
  // negative value on failure.
  [[nodiscard]] virtual int RunStep(int number, const package::VolumePaths& paths) = 0;
};

// For databases that need none of the steps: every step succeeds when the data database is at 2577 or above
// and fails below, so that older databases are left as they are.
class NoLegacySteps : public LegacyChain {
 public:
  [[nodiscard]] int RunStep(int number, const package::VolumePaths& paths) override;
};

}  // namespace updater::legacy
