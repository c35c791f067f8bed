// A machine for tests: every answer is a public field that a test sets, every key/value and pid file is real.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/host_state_files.h"
#include "platform/platform.h"

namespace tests {

struct FakeVolume {
  platform::FileSystemType type = platform::FileSystemType::kExt4;
  std::string ext_uuid = "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0";
  // Old text form: 03020100-0504-0706-0809-0a0b0c0d0e0f, new: 00010203-0405-0607-0809-0a0b0c0d0e0f.
  platform::FileSystemUuid btrfs_uuid = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  unsigned long long btrfs_magic = platform::kBtrfsMagic;
};

// Every folder that exists is a mount point; every path, existing or not, lies on a volume.
class FakeVolumes : public platform::Volumes {
 public:
  FakeVolume everywhere;                      // the volume of all paths that are not below one of the next
  std::map<std::string, FakeVolume> volumes;  // by the folder that they are mounted on
  std::set<std::string> gone;                 // paths on which, and below which, every call fails
  std::set<std::string> failing_calls;        // names of the operations that fail: "GetBtrfsUuid"
  std::vector<std::string> mount_points;

  [[nodiscard]] int PLATMountVolInfoGet(const std::string& path, platform::VolumeInfo& info) override;
  [[nodiscard]] int GetShareBinPath(const std::string& path, std::string& bin_path) override;
  [[nodiscard]] int GetFileSystemType(const std::string& path, platform::FileSystemType& type) override;
  [[nodiscard]] int GetBtrfsUuid(const std::string& path, platform::FileSystemUuid& uuid) override;
  [[nodiscard]] int ReadBtrfsSuperblock(const std::string& path,
                                        platform::BtrfsSuperblock& superblock) override;
  [[nodiscard]] int GetExtUuid(const std::string& path, std::string& uuid) override;
  [[nodiscard]] int ListMountPoints(std::vector<std::string>& result) override;

 private:
  [[nodiscard]] bool Fails(const char* call, const std::string& path) const;
  [[nodiscard]] const FakeVolume& Find(const std::string& path) const;
};

class FakeAppPrivilege : public platform::AppPrivilege {
 public:
  std::set<std::string> refused;                             // users
  std::vector<std::pair<std::string, std::string>> allowed;  // user and application id, in the order of calls

  [[nodiscard]] int PLIBAppPrivUserAddOne(const std::string& user,
                                          const std::string& application_id) override;
};

class FakeAccounts : public platform::Accounts {
 public:
  std::map<uid_t, platform::Account> accounts;
  std::set<uid_t> failing;                   // could not be asked for
  std::map<std::string, std::string> homes;  // by name; an account without one has no home

  void Add(const std::string& name, uid_t uid, gid_t gid = 100, bool expired = false);
  [[nodiscard]] platform::Lookup FindByUid(uid_t uid, platform::Account& account) override;
  [[nodiscard]] std::string GetRealHomeFolder(const std::string& name) override;
};

class FakeServices : public platform::Services {
 public:
  bool ldap = true;
  bool domain = true;
  bool user_home = true;

  [[nodiscard]] bool IsLdapEnabled() override { return ldap; }
  [[nodiscard]] bool IsDomainEnabled() override { return domain; }
  [[nodiscard]] bool IsUserHomeEnabled() override { return user_home; }
};

class FakeShares : public platform::Shares {
 public:
  std::vector<platform::Share> shares;
  std::set<std::string> failing;  // names that could not be asked for

  [[nodiscard]] platform::Lookup Open(const std::string& name, platform::Share& share) override;
};

class FakePlatform {
 public:
  FakeVolumes volumes;
  platform::host::HostStateFiles state_files;
  FakeAppPrivilege app_privilege;
  FakeAccounts accounts;
  FakeServices services;
  FakeShares shares;

  [[nodiscard]] platform::Platform& platform() { return platform_; }

 private:
  platform::Platform platform_{volumes, state_files, app_privilege, accounts, services, shares};
};

}  // namespace tests
