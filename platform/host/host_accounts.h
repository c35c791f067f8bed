// The user accounts, as the system's user database has them.
#pragma once

#include <string>

#include "platform/accounts.h"
#include "platform/system_paths.h"

namespace platform::host {

class HostAccounts : public Accounts {
 public:
  explicit HostAccounts(const SystemPaths& paths) : passwd_(paths.passwd) {}

  // "Not found" is believed only while the file of the local accounts can be read: the C library asks its
  // sources in turn, and when the file fails but the next one says "no such account", so does the library.
  //
  // An account is expired from the day of its shadow entry on. Without a shadow entry, or without a shadow
  // file at all, it never is. When the C library says that it could not read the entry, for lack of rights
  // too, the whole lookup fails: the answer would otherwise switch a user on or off.
  [[nodiscard]] Lookup FindByUid(uid_t uid, Account& account) override;

 private:
  std::string passwd_;
};

}  // namespace platform::host
