// Application privileges as files: one file per application, one user name per line, readable by root alone.
#pragma once

#include <string>

#include "platform/app_privilege.h"
#include "platform/system_paths.h"

namespace platform::host {

class HostAppPrivilege : public AppPrivilege {
 public:
  explicit HostAppPrivilege(const SystemPaths& paths) : folder_(paths.app_privilege_folder) {}

  // Refuses an account that is unknown or could not be asked for. The folder of the privileges is made when
  // it is missing, its parents are not.
  [[nodiscard]] int PLIBAppPrivUserAddOne(const std::string& user,
                                          const std::string& application_id) override;

 private:
  std::string folder_;
};

}  // namespace platform::host
