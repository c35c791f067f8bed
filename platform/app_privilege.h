// Which users may use which application of the machine.
#pragma once

#include <string>

#include "base/interface.h"

namespace platform {

class AppPrivilege : public base::Interface {
 public:
  // Allows the user the application; allowing twice is success. Returns 0, or a negative value when the user
  // is refused (an unknown account) or the privilege could not be stored.
  [[nodiscard]] virtual int PLIBAppPrivUserAddOne(const std::string& user,
                                                  const std::string& application_id) = 0;
};

}  // namespace platform
