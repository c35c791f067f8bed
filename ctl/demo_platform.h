// A machine on which the upgrade runs in an ordinary folder, without root: the folder counts as a mounted
// volume, other volumes are those that the data database records, and the accounts and shares are those that
// the user database knows. Key/value and pid files are real.
#pragma once

#include <set>
#include <string>

#include "ctl/demo_volumes.h"
#include "platform/host/host_state_files.h"
#include "platform/memory/memory_platform.h"
#include "platform/platform.h"

namespace ctl {

class DemoPlatform {
 public:
  // The users are read from `user_database`; one that cannot be read gives a machine without users. Every
  // normal user has an account, and a home folder above what is watched for it; only the sample's user that
  // has left has none. Every share user has its share. `own` and `recorded` as for TellVolumes().
  DemoPlatform(const std::string& user_database, const VolumeIdentity& own, const RecordedVolumes& recorded);

  [[nodiscard]] platform::Platform& platform() { return machine_.platform(); }
  // Who was allowed to use the application.
  [[nodiscard]] const std::set<std::string>& allowed() const { return machine_.app_privilege.allowed; }

 private:
  void ReadUsers(const std::string& user_database);

  platform::memory::MemoryMachine<platform::host::HostStateFiles> machine_;
};

}  // namespace ctl
