// The user accounts, as the system's user database has them.
#pragma once

#include <string>

#include "platform/accounts.h"
#include "platform/host/account_lookup.h"
#include "platform/system_paths.h"

namespace platform::host {

class HostAccounts : public Accounts {
 public:
  explicit HostAccounts(const SystemPaths& paths) : passwd_(paths.passwd), accounts_(paths) {}

  // "Not found" is believed only while the file of the local accounts can be read. The C library asks its
  // sources in turn, and answers "no such account" too when the file fails but the next source says so.
  //
  // An account is expired from the day of its shadow entry on. Without a shadow entry, or without a shadow
  // file at all, it never is. When the C library could not read the entry, if only for lack of rights, the
  // whole lookup fails, because a guess would switch a user on or off.
  [[nodiscard]] Lookup FindByUid(uid_t uid, Account& account) override;

 private:
  std::string passwd_;
  AccountLookup accounts_;
};

}  // namespace platform::host
