// The package's service status: the one word that its scripts, user interface and daemons read.
#pragma once

#include <string>

#include "platform/state_files.h"
#include "platform/system_paths.h"

namespace updater {

// The key of the status in its file.
inline constexpr const char* kStatusKey = "status";

// The status words that this program reads or writes.
namespace status {
inline constexpr const char* kDisabled = "disabled";
inline constexpr const char* kError = "error";
inline constexpr const char* kEnabled = "enabled";
inline constexpr const char* kInitializing = "initializing";
inline constexpr const char* kUpdating = "updating";
inline constexpr const char* kChecking = "checking";
inline constexpr const char* kMovingDb = "moving_db";
inline constexpr const char* kDone = "done";
inline constexpr const char* kUpgradeFail = "upgradefail";
inline constexpr const char* kDbNewer = "dbnewer";
}  // namespace status

// Both arguments of the constructor are borrowed.
class ServiceStatus {
 public:
  ServiceStatus(const platform::SystemPaths& paths, platform::StateFiles& state_files)
      : paths_(paths), state_files_(state_files) {}

  // Reads the status, cut to 31 bytes. A status that a running process should back ("updating", "checking",
  // "enabled", "moving_db") is "error" when that process is not alive; a package that is not enabled, or has
  // no status file, is "disabled"; a file without a status is "error". Always returns 0.
  [[nodiscard]] int GetServiceStatus(std::string& status);

  // Writes the status. Returns 0, or -1 after logging "[ERROR] service-ctrl(%d): fail to set service statis
  // to %s".
  [[nodiscard]] int SetServiceStatus(const std::string& status);

 private:
  [[nodiscard]] bool IsAlive(const std::string& pid_file);
  // The pid file of the process that must run while `status` is true; empty when none must.
  [[nodiscard]] std::string PidFileBehind(const std::string& status) const;

  const platform::SystemPaths& paths_;
  platform::StateFiles& state_files_;
};

}  // namespace updater
