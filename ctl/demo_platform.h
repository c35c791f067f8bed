// A machine on which the upgrade runs in an ordinary folder, without root: the folder counts as a mounted
// volume, other volumes are those that the data database records, and the accounts and shares are those that
// the user database knows. Key/value and pid files are real.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "ctl/demo_volumes.h"
#include "platform/host/host_state_files.h"
#include "platform/platform.h"

namespace ctl {

// Refuses nobody, and remembers who was allowed.
class DemoAppPrivilege : public platform::AppPrivilege {
 public:
  [[nodiscard]] int PLIBAppPrivUserAddOne(const std::string& user,
                                          const std::string& application_id) override;
  [[nodiscard]] const std::set<std::string>& allowed() const { return allowed_; }

 private:
  std::set<std::string> allowed_;
};

// Every normal user of the user database has an account, and a home folder above what is watched for it.
class DemoAccounts : public platform::Accounts {
 public:
  void Add(const platform::Account& account) { accounts_[account.uid] = account; }
  [[nodiscard]] platform::Lookup FindByUid(uid_t uid, platform::Account& account) override;

 private:
  std::map<uid_t, platform::Account> accounts_;
};

class DemoServices : public platform::Services {
 public:
  [[nodiscard]] bool IsLdapEnabled() override { return true; }
  [[nodiscard]] bool IsDomainEnabled() override { return true; }
  [[nodiscard]] bool IsUserHomeEnabled() override { return true; }
};

// Every share user of the user database has its share.
class DemoShares : public platform::Shares {
 public:
  void Add(platform::Share share);
  [[nodiscard]] platform::Lookup Open(const std::string& name, platform::Share& share) override;

 private:
  std::vector<platform::Share> shares_;
};

class DemoPlatform {
 public:
  // The users are read from `user_database`; one that cannot be read gives a machine without users. The
  // sample's user that has left has no account. `own` and `recorded` as for DemoVolumes.
  DemoPlatform(const std::string& volume, const std::string& user_database, VolumeIdentity own,
               const RecordedVolumes& recorded);

  [[nodiscard]] platform::Platform& platform() { return platform_; }
  [[nodiscard]] const DemoAppPrivilege& app_privilege() const { return app_privilege_; }

 private:
  void ReadUsers(const std::string& user_database);

  DemoVolumes volumes_;
  platform::host::HostStateFiles state_files_;
  DemoAppPrivilege app_privilege_;
  DemoAccounts accounts_;
  DemoServices services_;
  DemoShares shares_;
  platform::Platform platform_{volumes_, state_files_, app_privilege_, accounts_, services_, shares_};
};

}  // namespace ctl
