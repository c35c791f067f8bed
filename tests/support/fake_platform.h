// A machine for tests: every answer is a public field that a test sets, every key/value and pid file is real.
#pragma once

#include <strings.h>

#include <algorithm>
#include <filesystem>
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

// Every folder that exists is a mount point; every path, existing or not, lies on the one volume.
class FakeVolumes : public platform::Volumes {
 public:
  FakeVolume everywhere;
  std::set<std::string> gone;           // paths for which every call fails
  std::set<std::string> failing_calls;  // names of the operations that fail: "GetBtrfsUuid"
  std::vector<std::string> mount_points;

  int PLATMountVolInfoGet(const std::string& path, platform::VolumeInfo& info) override {
    std::error_code ignored;  // what cannot be looked at is no folder
    if (!std::filesystem::is_directory(path, ignored)) return -1;
    const bool btrfs = everywhere.type == platform::FileSystemType::kBtrfs;
    return Answer(__func__, path, {path, "/dev/fake", btrfs ? "btrfs" : "ext4"}, info);
  }
  int GetShareBinPath(const std::string& path, std::string& bin_path) override {
    return Answer(__func__, path, path, bin_path);
  }
  int GetFileSystemType(const std::string& path, platform::FileSystemType& type) override {
    return Answer(__func__, path, everywhere.type, type);
  }
  int GetBtrfsUuid(const std::string& path, platform::FileSystemUuid& uuid) override {
    return Answer(__func__, path, everywhere.btrfs_uuid, uuid);
  }
  int ReadBtrfsSuperblock(const std::string& path, platform::BtrfsSuperblock& superblock) override {
    return Answer(__func__, path, {everywhere.btrfs_magic, everywhere.btrfs_uuid}, superblock);
  }
  int GetExtUuid(const std::string& path, std::string& uuid) override {
    return Answer(__func__, path, everywhere.ext_uuid, uuid);
  }
  int ListMountPoints(std::vector<std::string>& result) override {
    return Answer(__func__, "", mount_points, result);
  }

 private:
  template <typename Value>
  int Answer(const char* call, const std::string& path, const Value& value, Value& result) const {
    if (gone.contains(path) || failing_calls.contains(call)) return -1;
    result = value;
    return 0;
  }
};

class FakeAppPrivilege : public platform::AppPrivilege {
 public:
  std::set<std::string> refused;                             // users
  std::vector<std::pair<std::string, std::string>> allowed;  // user and application id, in the order of calls

  int PLIBAppPrivUserAddOne(const std::string& user, const std::string& application_id) override {
    if (refused.contains(user)) return -1;
    allowed.emplace_back(user, application_id);
    return 0;
  }
};

class FakeAccounts : public platform::Accounts {
 public:
  std::map<uid_t, platform::Account> accounts;
  std::set<uid_t> failing;  // could not be asked for

  void Add(const std::string& name, uid_t uid, gid_t gid = 100, bool expired = false) {
    accounts[uid] = {.name = name, .uid = uid, .gid = gid, .home = "", .expired = expired};
  }
  platform::Lookup FindByUid(uid_t uid, platform::Account& account) override {
    if (failing.contains(uid)) return platform::Lookup::kFailed;
    const auto found = accounts.find(uid);
    if (found == accounts.end()) return platform::Lookup::kNotFound;
    account = found->second;
    return platform::Lookup::kFound;
  }
};

class FakeServices : public platform::Services {
 public:
  bool ldap = true;
  bool domain = true;
  bool user_home = true;

  bool IsLdapEnabled() override { return ldap; }
  bool IsDomainEnabled() override { return domain; }
  bool IsUserHomeEnabled() override { return user_home; }
};

class FakeShares : public platform::Shares {
 public:
  std::vector<platform::Share> shares;
  std::set<std::string> failing;  // names that could not be asked for

  platform::Lookup Open(const std::string& name, platform::Share& share) override {
    if (failing.contains(name)) return platform::Lookup::kFailed;
    const auto found = std::find_if(shares.begin(), shares.end(), [&name](const platform::Share& candidate) {
      return ::strcasecmp(candidate.name.c_str(), name.c_str()) == 0;
    });
    if (found == shares.end()) return platform::Lookup::kNotFound;
    share = *found;
    return platform::Lookup::kFound;
  }
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
