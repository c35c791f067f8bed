// The user accounts, as the system's user database has them.
#pragma once

#include "platform/accounts.h"

namespace platform::host {

class HostAccounts : public Accounts {
 public:
  // An account is expired from the day of its shadow entry on. Without a shadow entry, or without a shadow
  // file at all, it never is. Anything else that keeps the entry from being read, missing rights included,
  // fails the whole lookup: the answer would otherwise switch a user on or off.
  [[nodiscard]] Lookup FindByUid(uid_t uid, Account& account) override;

  [[nodiscard]] std::string GetRealHomeFolder(const std::string& name) override;
};

}  // namespace platform::host
