#include "tests/support/fake_platform.h"

#include <strings.h>

#include <filesystem>

namespace tests {
namespace {

bool IsAtOrBelow(const std::string& path, const std::string& folder) {
  return path == folder || path.starts_with(folder.ends_with('/') ? folder : folder + '/');
}

}  // namespace

bool FakeVolumes::Fails(const char* call, const std::string& path) const {
  for (const std::string& folder : gone) {
    if (IsAtOrBelow(path, folder)) return true;
  }
  return failing_calls.contains(call);
}

const FakeVolume& FakeVolumes::Find(const std::string& path) const {
  const FakeVolume* found = &everywhere;
  for (const auto& [folder, volume] : volumes) {  // in order, so that a nested folder comes after its parent
    if (IsAtOrBelow(path, folder)) found = &volume;
  }
  return *found;
}

int FakeVolumes::PLATMountVolInfoGet(const std::string& path, platform::VolumeInfo& info) {
  std::error_code ignored;
  if (Fails("PLATMountVolInfoGet", path) || !std::filesystem::is_directory(path, ignored)) return -1;
  info = {path, "/dev/fake", Find(path).type == platform::FileSystemType::kBtrfs ? "btrfs" : "ext4"};
  return 0;
}

int FakeVolumes::GetShareBinPath(const std::string& path, std::string& bin_path) {
  if (Fails("GetShareBinPath", path)) return -1;
  bin_path = path;
  return 0;
}

int FakeVolumes::GetFileSystemType(const std::string& path, platform::FileSystemType& type) {
  if (Fails("GetFileSystemType", path)) return -1;
  type = Find(path).type;
  return 0;
}

int FakeVolumes::GetBtrfsUuid(const std::string& path, platform::FileSystemUuid& uuid) {
  if (Fails("GetBtrfsUuid", path)) return -1;
  uuid = Find(path).btrfs_uuid;
  return 0;
}

int FakeVolumes::ReadBtrfsSuperblock(const std::string& path, platform::BtrfsSuperblock& superblock) {
  if (Fails("ReadBtrfsSuperblock", path)) return -1;
  superblock = {Find(path).btrfs_magic, Find(path).btrfs_uuid};
  return 0;
}

int FakeVolumes::GetExtUuid(const std::string& path, std::string& uuid) {
  if (Fails("GetExtUuid", path)) return -1;
  uuid = Find(path).ext_uuid;
  return 0;
}

int FakeVolumes::ListMountPoints(std::vector<std::string>& result) {
  if (Fails("ListMountPoints", "")) return -1;
  result = mount_points;
  return 0;
}

int FakeAppPrivilege::PLIBAppPrivUserAddOne(const std::string& user, const std::string& application_id) {
  if (refused.contains(user)) return -1;
  allowed.emplace_back(user, application_id);
  return 0;
}

void FakeAccounts::Add(const std::string& name, uid_t uid, gid_t gid, bool expired) {
  accounts[uid] = {.name = name, .uid = uid, .gid = gid, .expired = expired};
}

platform::Lookup FakeAccounts::FindByUid(uid_t uid, platform::Account& account) {
  if (failing.contains(uid)) return platform::Lookup::kFailed;
  const auto found = accounts.find(uid);
  if (found == accounts.end()) return platform::Lookup::kNotFound;
  account = found->second;
  return platform::Lookup::kFound;
}

std::string FakeAccounts::GetRealHomeFolder(const std::string& name) {
  const auto found = homes.find(name);
  return found == homes.end() ? std::string() : found->second;
}

platform::Lookup FakeShares::Open(const std::string& name, platform::Share& share) {
  if (failing.contains(name)) return platform::Lookup::kFailed;
  for (const platform::Share& candidate : shares) {
    if (::strcasecmp(candidate.name.c_str(), name.c_str()) != 0) continue;
    share = candidate;
    return platform::Lookup::kFound;
  }
  return platform::Lookup::kNotFound;
}

}  // namespace tests
