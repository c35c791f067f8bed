// The package's own application privilege.
#pragma once

#include <string>
#include <vector>

#include "platform/app_privilege.h"

namespace platform::sdk {

// Allows the users the package's application. A refusal is logged and nothing else: an upgrade does not fail
// because an account is gone.
void AllowApplication(AppPrivilege& app_privilege, const std::vector<std::string>& users);

}  // namespace platform::sdk
