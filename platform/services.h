// The services of the machine that decide which kinds of users there can be.
#pragma once

#include "base/interface.h"

namespace platform {

// A state that cannot be read counts as enabled, because the users of a disabled service are removed.
class Services : public base::Interface {
 public:
  [[nodiscard]] virtual bool IsLdapEnabled() = 0;
  [[nodiscard]] virtual bool IsDomainEnabled() = 0;
  [[nodiscard]] virtual bool IsUserHomeEnabled() = 0;
};

}  // namespace platform
