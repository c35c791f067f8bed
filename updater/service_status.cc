#include "updater/service_status.h"

#include <unistd.h>

#include <array>
#include <cstring>

#include "base/errno.h"
#include "logger/component_log.h"

namespace updater {
namespace {

constexpr logger::Component kComponent = {"service_ctrl_debug", "service-ctrl"};
constexpr std::size_t kStatusBufferSize = 32;

}  // namespace

int ServiceStatus::GetServiceStatus(std::string& status) {
  status = status::kDisabled;
  if (access(paths_.package_enabled.c_str(), F_OK) != 0) return 0;
  const std::string& file = paths_.service_status;
  if (access(file.c_str(), F_OK) != 0) {
    logger::ComponentErrno(kComponent, base::Errno::Last(), "access(%s): %s (%d)\n", file);
    return 0;
  }
  std::array<char, kStatusBufferSize> buffer = {};
  if (state_files_.PLIBCFileGetKeyValue(file, kStatusKey, buffer, 0) < 1) {
    logger::ComponentError(kComponent, "PLIBCFileGetKeyValue(%s, status): %d\n", file,
                           state_files_.PLIBCErrGet());
    status = status::kError;
    return 0;
  }
  status.assign(buffer.data(), strnlen(buffer.data(), buffer.size()));
  const std::string pid_file = PidFileBehind(status);
  if (!pid_file.empty() && !IsAlive(pid_file)) status = status::kError;
  return 0;
}

int ServiceStatus::SetServiceStatus(const std::string& status) {
  if (state_files_.PLIBCFileSetKeyValue(paths_.service_status, kStatusKey, status, 0) >= 0) return 0;
  logger::ComponentError(kComponent, "fail to set service statis to %s", status);
  return -1;
}

std::string ServiceStatus::PidFileBehind(const std::string& status) const {
  if (status == status::kUpdating || status == status::kChecking) return paths_.upgrading_mark;
  if (status == status::kEnabled) return paths_.sync_daemon_pid;
  if (status == status::kMovingDb) return paths_.repository_move_pid;
  return {};
}

bool ServiceStatus::IsAlive(const std::string& pid_file) {
  const pid_t pid = state_files_.PLIBCReadPidFile(pid_file);
  return pid > 0 && state_files_.PLIBCProcAlive(pid) != 0;
}

}  // namespace updater
