#include "ctl/quiet_package.h"

#include "ctl/package_state.h"
#include "ctl/refuse.h"
#include "db-util/look.h"
#include "logger/recording_sink.h"
#include "platform/host/host_state_files.h"
#include "platform/host/host_volumes.h"
#include "platform/sdk/volume_uuid.h"
#include "updater/framework/views.h"
#include "updater/intent_file.h"
#include "updater/service_status.h"

namespace ctl {
namespace {

ServiceState ReadState(const platform::SystemPaths& system) {
  platform::host::HostStateFiles state_files;
  return ReadServiceState(system, state_files);
}

int CheckNoUpgrade(const ServiceState& service, std::string& error) {
  if (!service.is_marker_alive) return 0;
  return Refuse(
      error, "an upgrade is running, process " + std::to_string(*service.marked_by) + ": wait for its end");
}

}  // namespace

bool IsInUse(const std::string& database, std::string& error) {
  const std::optional<pid_t> user = db_util::FindUser(database);
  if (!user) return false;
  error = database + " is in use" + (*user > 0 ? " by process " + std::to_string(*user) : "") +
          ": stop the package's daemons first";
  return true;
}

int CheckNoUpgrade(const platform::SystemPaths& system, std::string& error) {
  return CheckNoUpgrade(ReadState(system), error);
}

int CheckNoCommit(const package::VolumePaths& paths, std::string& error) {
  updater::Intent intent;
  updater::IntentFound found{};
  if (updater::ReadIntent(paths, found, intent) && found == updater::IntentFound::kNone) return 0;
  return Refuse(error, "a run was stopped while it put databases in place (" + paths.intent +
                           "): let updater-svr finish it first; updater-ctl status tells more");
}

int CheckNobodyWorks(const package::VolumePaths& paths, const platform::SystemPaths& system,
                     std::string& error) {
  const ServiceState service = ReadState(system);
  if (CheckNoUpgrade(service, error) < 0) return -1;
  // These words count only while a process stands behind them.
  if (service.status == updater::status::kEnabled || service.status == updater::status::kMovingDb) {
    return Refuse(error, "the package is at work, its status is \"" + service.status + "\": stop it first");
  }
  return CheckUnused(paths, error);
}

int CheckUnused(const package::VolumePaths& paths, std::string& error) {
  for (const std::string& database : {paths.live.data, paths.live.user, paths.live.log, paths.live.client}) {
    if (IsInUse(database, error)) return -1;
  }
  const bool is_free = updater::ForEachFolderDatabase(
      paths.live, [&error](const std::string& database) { return !IsInUse(database, error); });
  if (!is_free && error.empty()) error = "cannot list the folders of " + paths.live.sync_folder;
  return is_free ? 0 : -1;
}

UpgradeWatch::UpgradeWatch(const platform::SystemPaths& system) : system_(system), before_(StatusFile()) {}

struct stat UpgradeWatch::StatusFile() const {
  struct stat status {};
  if (stat(system_.service_status.c_str(), &status) < 0) status = {};  // a package that is disabled has none
  return status;
}

bool UpgradeWatch::IsRunning() const { return ReadState(system_).is_marker_alive; }

int UpgradeWatch::Check(std::string& error) const {
  const struct stat now = StatusFile();
  const bool is_same = now.st_ino == before_.st_ino && now.st_size == before_.st_size &&
                       now.st_mtim.tv_sec == before_.st_mtim.tv_sec &&
                       now.st_mtim.tv_nsec == before_.st_mtim.tv_nsec;
  if (is_same && !IsRunning()) return 0;
  error = "meanwhile an upgrade was started, or the service status was changed";
  return -1;
}

std::string ReadVolumeUuid(const std::string& volume) {
  logger::RecordingSink ignored;  // a file system without one is no failure here
  const logger::ScopedSink sink(ignored);
  platform::host::HostVolumes host{platform::SystemPaths()};
  std::string uuid;
  return platform::sdk::GetVolumeUuid(host, volume, uuid) < 0 ? "" : uuid;
}

}  // namespace ctl
