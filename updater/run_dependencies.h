// Everything that a run reaches outside of itself.
#pragma once

#include <iosfwd>

#include "platform/platform.h"
#include "platform/system_paths.h"
#include "updater/consistency_check.h"
#include "updater/framework/updater_framework.h"
#include "updater/legacy/legacy_chain.h"

namespace updater {

// All borrowed; `observer` may be null.
struct RunDependencies {
  const platform::SystemPaths& paths;
  platform::Platform& platform;
  legacy::LegacyChain& legacy;
  ConsistencyCheck& check;
  std::ostream& out;
  std::ostream& err;
  RunObserver* observer = nullptr;
};

}  // namespace updater
