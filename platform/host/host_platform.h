// The whole machine: one implementation of each interface, over one set of paths.
#pragma once

#include "platform/host/host_accounts.h"
#include "platform/host/host_app_privilege.h"
#include "platform/host/host_services.h"
#include "platform/host/host_shares.h"
#include "platform/host/host_state_files.h"
#include "platform/host/host_volumes.h"
#include "platform/platform.h"
#include "platform/system_paths.h"

namespace platform::host {

// Owns what `platform()` refers to. The paths are copied.
class HostPlatform {
 public:
  explicit HostPlatform(const SystemPaths& paths)
      : volumes_(paths), app_privilege_(paths), accounts_(paths), services_(paths), shares_(paths) {}

  [[nodiscard]] Platform& platform() { return platform_; }

 private:
  HostVolumes volumes_;
  HostStateFiles state_files_;
  HostAppPrivilege app_privilege_;
  HostAccounts accounts_;
  HostServices services_;
  HostShares shares_;
  Platform platform_{volumes_, state_files_, app_privilege_, accounts_, services_, shares_};
};

}  // namespace platform::host
