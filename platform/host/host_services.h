// Which services are enabled, as the machine's configuration files say.
#pragma once

#include <string>

#include "platform/services.h"
#include "platform/system_paths.h"

namespace platform::host {

// A file that cannot be read, a missing one too, leaves its services enabled.
class HostServices : public Services {
 public:
  explicit HostServices(const SystemPaths& paths) : nsswitch_(paths.nsswitch), samba_(paths.samba) {}

  // The accounts come from ldap or sss.
  [[nodiscard]] bool IsLdapEnabled() override;
  // The accounts come from winbind.
  [[nodiscard]] bool IsDomainEnabled() override;
  // The file server has a section [homes].
  [[nodiscard]] bool IsUserHomeEnabled() override;

 private:
  std::string nsswitch_;
  std::string samba_;
};

}  // namespace platform::host
