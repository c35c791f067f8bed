// Accounts in the system's user database, with "not there" and "could not ask" told apart.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/lookup.h"

namespace platform::host {

struct AccountEntry {
  std::string name;
  uid_t uid = 0;
  gid_t gid = 0;
  std::string home;
};

[[nodiscard]] Lookup FindAccount(uid_t uid, AccountEntry& entry);
[[nodiscard]] Lookup FindAccount(const std::string& name, AccountEntry& entry);

// The day, counted from 1970-01-01, from which on the account is expired; negative for never.
[[nodiscard]] Lookup FindExpiryDay(const std::string& name, long& day);

}  // namespace platform::host
