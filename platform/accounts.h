// The user accounts of the machine.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/interface.h"
#include "platform/lookup.h"

namespace platform {

struct Account {
  std::string name;
  uid_t uid = 0;
  gid_t gid = 0;         // primary group
  std::string home;      // its home folder as a real path (links resolved); empty when it cannot be resolved
  bool expired = false;  // the account's expiry date has passed; mirrored in the user table's attribute bit 2
};

class Accounts : public base::Interface {
 public:
  [[nodiscard]] virtual Lookup FindByUid(uid_t uid, Account& account) = 0;
};

}  // namespace platform
