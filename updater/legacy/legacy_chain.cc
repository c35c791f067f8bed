#include "updater/legacy/legacy_chain.h"

#include <algorithm>

namespace updater::legacy {

int LegacySteps::RunStep(int number, const package::VolumePaths& paths) {
  const auto step = std::ranges::find(steps_, number, &LegacyStep::number);
  return step == steps_.end() ? -1 : step->Run(paths.copies);
}

}  // namespace updater::legacy
