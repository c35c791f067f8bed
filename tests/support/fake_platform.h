// A machine for tests: every answer is a public field that a test sets, every key/value and pid file is real.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "platform/host/host_state_files.h"
#include "platform/memory/memory_platform.h"

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

class FakeAccounts : public platform::memory::MemoryAccounts {
 public:
  std::set<uid_t> failing;  // could not be asked for

  void Add(const std::string& name, uid_t uid, gid_t gid = 100) {
    accounts[uid] = {.name = name, .uid = uid, .gid = gid, .home = "", .expired = false};
  }
  platform::Lookup FindByUid(uid_t uid, platform::Account& account) override {
    return failing.contains(uid) ? platform::Lookup::kFailed : MemoryAccounts::FindByUid(uid, account);
  }
};

class FakePlatform {
 public:
  FakeVolumes volumes;
  platform::host::HostStateFiles state_files;
  platform::memory::MemoryAppPrivilege app_privilege;
  FakeAccounts accounts;
  platform::memory::MemoryServices services;
  platform::memory::MemoryShares shares;

  [[nodiscard]] platform::Platform& platform() { return platform_; }

 private:
  platform::Platform platform_{volumes, state_files, app_privilege, accounts, services, shares};
};

}  // namespace tests
