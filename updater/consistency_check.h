// The check of the upgraded databases against the users, shares and volumes of the machine.
#pragma once

#include "base/interface.h"
#include "package/layout.h"

namespace updater {

class ConsistencyCheck : public base::Interface {
 public:
  // Checks the live databases, which are in place by then. Returns 0, or a negative value when the run has to
  // end in "upgradefail"; what was removed until then stays removed.
  [[nodiscard]] virtual int Run(const package::VolumePaths& paths) = 0;
};

}  // namespace updater
