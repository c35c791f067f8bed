#include "updater/legacy/legacy_chain.h"

#include "updater/framework/updater_framework.h"

namespace updater::legacy {
namespace {

constexpr int kFirstVersionWithoutLegacySteps = 2577;

}  // namespace

int NoLegacySteps::RunStep(int /*number*/, const package::VolumePaths& paths) {
  Version version;
  if (UpdaterFramework::GetCurrentVersion(paths.copies.data, version) < 0) return -1;
  return version.number >= kFirstVersionWithoutLegacySteps ? 0 : -1;
}

}  // namespace updater::legacy
