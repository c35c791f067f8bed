// The machine below, as one set of interfaces. Borrowed: whoever composes the program owns what they refer to
// and keeps it alive.
#pragma once

#include "platform/accounts.h"
#include "platform/app_privilege.h"
#include "platform/services.h"
#include "platform/shares.h"
#include "platform/state_files.h"
#include "platform/volumes.h"

namespace platform {

struct Platform {
  Volumes& volumes;
  StateFiles& state_files;
  AppPrivilege& app_privilege;
  Accounts& accounts;
  Services& services;
  Shares& shares;
};

}  // namespace platform
