#include "updater/run_updater.h"

#include <unistd.h>

#include <csignal>
#include <exception>
#include <string_view>

#include "base/errno.h"
#include "logger/component_log.h"
#include "logger/log_sink.h"
#include "updater/placement.h"
#include "updater/service_status.h"
#include "updater/volume_upgrade.h"

namespace updater {
namespace {

// The messages of a run that has not reached its databases yet name the program and the line.
template <typename Outcome, typename... Args>
bool Check(const Outcome& outcome, const logger::PrintfFormat<Args...>& failure, const Args&... args) {
  const auto write = [](int source_line, const std::string& text) {
    logger::SystemLog("%s:%d %s", "updater-svr", source_line, text);
  };
  return logger::CheckOr<decltype(write), Outcome, Args...>(write, outcome, failure, args...);
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
      if (Prepare()) outcome = Upgrade();
    } catch (const std::exception& error) {
      logger::SystemLog("unexpected failure: %s\n", error.what());
    }
    (void)status_.SetServiceStatus(outcome);  // it has logged its failure, and there is no one else to tell
    (void)unlink(dependencies_.paths.upgrading_mark.c_str());
  }

 private:
  bool Prepare() {
    platform::VolumeInfo info;
    std::string status;
    return Check(dependencies_.platform.volumes.PLATMountVolInfoGet(volume_, info),
                 "%s is not a mounted volume", volume_) &&
           Check(status_.GetServiceStatus(status), "failed to get service status") &&
           // Then the status is overwritten and another's mark is removed; keep it so.
           Check(status == status::kInitializing, "unexpected status for updater: %s", status) &&
           CreateUpgradingMark();
  }

  bool CreateUpgradingMark() {
    const std::string& mark = dependencies_.paths.upgrading_mark;
    platform::StateFiles& state_files = dependencies_.platform.state_files;
    (void)unlink(mark.c_str());  // there usually is none
    if (state_files.PLIBCProcPidFileCreate(mark) != 0) {
      const base::Errno error = base::Errno::Last();
      return Check(false, "PLIBCProcPidFileCreate: Error code = %d, %s (%d)", state_files.PLIBCErrGet(),
                   error.Text(), error.number());
    }
    logger::SystemLog("database is located at '%s'", volume_);
    (void)status_.SetServiceStatus(
        status::kUpdating);  // logged; the upgrade matters more than the word for it
    return true;
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
    BeginPhase(Phase::kChecking);
    (void)status_.SetServiceStatus(status::kChecking);  // logged; see above
    const int result = dependencies_.check.Run(upgrade.paths());
    AcceptLiveChanges(upgrade.paths());
    return result < 0 ? status::kUpgradeFail : status::kDone;
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
  const ScopedObserver watching(dependencies.observer);
  Driver(arguments, dependencies).Run();
  return 0;
}

}  // namespace updater
