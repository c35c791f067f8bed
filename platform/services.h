// The services of the machine that decide which kinds of users there can be.
#pragma once

namespace platform {

// A state that cannot be read counts as enabled, because the users of a disabled service are removed.
class Services {
 public:
  Services() = default;
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;
  virtual ~Services() = default;

  [[nodiscard]] virtual bool IsLdapEnabled() = 0;
  [[nodiscard]] virtual bool IsDomainEnabled() = 0;
  [[nodiscard]] virtual bool IsUserHomeEnabled() = 0;
};

}  // namespace platform
