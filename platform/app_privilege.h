// Which users may use which application of the machine.
#pragma once

#include <string>
#include <vector>

#include "base/interface.h"

namespace platform {

class AppPrivilege : public base::Interface {
 public:
  // Allows the users the application, all at once; allowing twice is success. Returns those who are refused,
  // in the same order: unknown accounts, or everybody when the privilege could not be stored. It is then as
  // it was.
  [[nodiscard]] virtual std::vector<std::string> PLIBAppPrivUserAdd(const std::vector<std::string>& users,
                                                                    const std::string& application_id) = 0;
};

}  // namespace platform
