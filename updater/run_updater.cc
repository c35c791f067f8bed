#include "updater/run_updater.h"

#include <unistd.h>

#include <csignal>
#include <exception>
#include <string_view>

#include "base/errno.h"
#include "logger/component_log.h"
#include "logger/log_sink.h"
#include "updater/service_status.h"
#include "updater/volume_upgrade.h"

namespace updater {
namespace {

// The messages of a run that has not reached its databases yet name the program and the line.
template <typename... Args>
int DriverFailure(const logger::PrintfFormat<Args...>& format, const Args&... args) {
  logger::SystemLog("%s:%d %s", "updater-svr", format.line(), logger::FormatText<Args...>(format, args...));
  return -1;
}

class Driver {
 public:
  Driver(std::span<const char* const> arguments, const RunDependencies& dependencies)
      : volume_(arguments[0]),
        with_legacy_steps_(arguments.size() > 1 && std::string_view(arguments[1]) == "--dont-skip"),
        dependencies_(dependencies),
        status_(dependencies.paths, dependencies.platform.state_files) {}

  void Run() {
    const char* outcome = status::kUpgradeFail;
    try {
      outcome = Prepare() < 0 ? status::kUpgradeFail : Upgrade();
    } catch (const std::exception& error) {
      logger::SystemLog("unexpected failure: %s\n", error.what());
    }
    (void)status_.SetServiceStatus(outcome);  // it has logged its failure, and there is no one else to tell
    (void)unlink(dependencies_.paths.upgrading_mark.c_str());
  }

 private:
  int Prepare() {
    platform::VolumeInfo info;
    if (dependencies_.platform.volumes.PLATMountVolInfoGet(volume_, info) < 0) {
      return DriverFailure("%s is not a mounted volume", volume_);
    }
    std::string status;
    if (status_.GetServiceStatus(status) < 0) return DriverFailure("failed to get service status");
    if (status != status::kInitializing) {
      // The status is overwritten and the mark removed although this run did not make it; keep it so.
      return DriverFailure("unexpected status for updater: %s", status);
    }
    return CreateUpgradingMark();
  }

  int CreateUpgradingMark() {
    const std::string& mark = dependencies_.paths.upgrading_mark;
    platform::StateFiles& state_files = dependencies_.platform.state_files;
    (void)unlink(mark.c_str());  // there usually is none
    if (state_files.PLIBCProcPidFileCreate(mark) != 0) {
      const base::Errno error = base::Errno::Last();
      return DriverFailure("PLIBCProcPidFileCreate: Error code = %d, %s (%d)", state_files.PLIBCErrGet(),
                           error.Text(), error.number());
    }
    logger::SystemLog("database is located at '%s'", volume_);
    (void)status_.SetServiceStatus(
        status::kUpdating);  // logged; the upgrade matters more than the word for it
    return 0;
  }

  const char* Upgrade() {
    VolumeUpgrade upgrade(package::VolumePaths(volume_), with_legacy_steps_, dependencies_);
    switch (upgrade.Run()) {
      case VolumeUpgrade::Result::kNothingToDo:
        return status::kDone;
      case VolumeUpgrade::Result::kNewer:
        return status::kDbNewer;
      case VolumeUpgrade::Result::kFailed:
        return status::kUpgradeFail;
      case VolumeUpgrade::Result::kUpgraded:
        break;
    }
    (void)status_.SetServiceStatus(status::kChecking);  // logged; see above
    return dependencies_.check.Run(upgrade.paths()) < 0 ? status::kUpgradeFail : status::kDone;
  }

  std::string volume_;
  bool with_legacy_steps_;
  const RunDependencies& dependencies_;
  ServiceStatus status_;
};

}  // namespace

int RunUpdater(std::span<const char* const> arguments, const RunDependencies& dependencies) {
  logger::SetUpComponentLog(dependencies.paths.debug_configuration);
  (void)std::signal(SIGPIPE, SIG_IGN);  // a log or terminal that went away must not end the run
  (void)std::signal(SIGXFSZ, SIG_IGN);  // a write beyond a limit must fail like any other, and say so
  if (arguments.empty() || arguments.size() > 2) {
    logger::SystemLog("updater: invalid arguments\n");
    return -1;
  }
  Driver(arguments, dependencies).Run();
  return 0;
}

}  // namespace updater
