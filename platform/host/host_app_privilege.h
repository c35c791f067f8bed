// Application privileges as files: one file per application, one user name per line, readable by root alone.
#pragma once

#include <string>

#include "platform/app_privilege.h"
#include "platform/host/account_lookup.h"
#include "platform/system_paths.h"

namespace platform::host {

class HostAppPrivilege : public AppPrivilege {
 public:
  explicit HostAppPrivilege(const SystemPaths& paths)
      : folder_(paths.app_privilege_folder), accounts_(paths) {}

  // Refuses an account that is unknown or could not be asked for. The file is written once for all others,
  // and not touched when there are none; whoever is killed leaves nobody or all of them in it. The folder of
  // the privileges is made when it is missing, its parents are not.
  [[nodiscard]] std::vector<std::string> PLIBAppPrivUserAdd(const std::vector<std::string>& users,
                                                            const std::string& application_id) override;

 private:
  std::string folder_;
  AccountLookup accounts_;
};

}  // namespace platform::host
