// Parts of a machine that are told what they answer: for a machine made of a folder, and for tests.
#pragma once

#include <strings.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/memory/memory_volumes.h"
#include "platform/platform.h"

namespace platform::memory {

// Refuses nobody, and remembers who was allowed.
class MemoryAppPrivilege : public AppPrivilege {
 public:
  [[nodiscard]] std::vector<std::string> PLIBAppPrivUserAdd(const std::vector<std::string>& users,
                                                            const std::string& /*application_id*/) override {
    allowed.insert(users.begin(), users.end());
    return {};
  }

  std::set<std::string> allowed;
};

class MemoryAccounts : public Accounts {
 public:
  [[nodiscard]] Lookup FindByUid(uid_t uid, Account& account) override {
    const auto found = accounts.find(uid);
    if (found == accounts.end()) return Lookup::kNotFound;
    account = found->second;
    return Lookup::kFound;
  }

  std::map<uid_t, Account> accounts;  // each under its own uid
};

class MemoryServices : public Services {
 public:
  [[nodiscard]] bool IsLdapEnabled() override { return ldap; }
  [[nodiscard]] bool IsDomainEnabled() override { return domain; }
  [[nodiscard]] bool IsUserHomeEnabled() override { return user_home; }

  bool ldap = true;
  bool domain = true;
  bool user_home = true;
};

class MemoryShares : public Shares {
 public:
  [[nodiscard]] Lookup Open(const std::string& name, Share& share) override {
    const auto found = std::find_if(shares.begin(), shares.end(), [&name](const Share& candidate) {
      return strcasecmp(candidate.name.c_str(), name.c_str()) == 0;
    });
    if (found == shares.end()) return Lookup::kNotFound;
    share = *found;
    return Lookup::kFound;
  }

  std::vector<Share> shares;
};

// A whole machine of such parts. Its key/value and pid files are those of `StateFiles`.
template <typename StateFiles, typename VolumesPart = MemoryVolumes, typename AccountsPart = MemoryAccounts>
class MemoryMachine {
 public:
  VolumesPart volumes;
  StateFiles state_files;
  MemoryAppPrivilege app_privilege;
  AccountsPart accounts;
  MemoryServices services;
  MemoryShares shares;

  [[nodiscard]] Platform& platform() { return platform_; }

 private:
  Platform platform_{volumes, state_files, app_privilege, accounts, services, shares};
};

}  // namespace platform::memory
