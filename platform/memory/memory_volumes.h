// Storage volumes that are told what they answer.
#pragma once

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "platform/volumes.h"

namespace platform::memory {

// What a file system answers when it is asked who it is.
struct VolumeIdentity {
  FileSystemType type = FileSystemType::kExt4;
  std::string uuid;  // in its new form
  FileSystemUuid btrfs_uuid = {};
  unsigned long long btrfs_magic = kBtrfsMagic;
};

class MemoryVolumes : public Volumes {
 public:
  // Of every path that `recorded` does not name, existing or not.
  VolumeIdentity own;
  // By path. Several volumes of one path take turns, the one whose turn it is stands last.
  std::map<std::string, std::vector<VolumeIdentity>> recorded;
  std::vector<std::string> mount_points;

  // Every folder that exists is a mount point.
  [[nodiscard]] int PLATMountVolInfoGet(const std::string& path, VolumeInfo& info) override {
    std::error_code ignored;  // what cannot be looked at is no folder
    const bool is_folder = std::filesystem::is_directory(path, ignored);
    return Answer(is_folder, __func__, path, {path, "a folder", "ext4"}, info);
  }
  // For each row, in the order of the uuids, the check after the upgrade calls this operation first.
  [[nodiscard]] int GetShareBinPath(const std::string& path, std::string& bin_path) override {
    const auto found = recorded.find(path);
    if (found != recorded.end()) {
      std::rotate(found->second.begin(), found->second.begin() + 1, found->second.end());
    }
    return Answer(true, __func__, path, path, bin_path);
  }
  [[nodiscard]] int GetFileSystemType(const std::string& path, FileSystemType& type) override {
    return Answer(true, __func__, path, At(path).type, type);
  }
  [[nodiscard]] int GetBtrfsUuid(const std::string& path, FileSystemUuid& uuid) override {
    return Answer(IsBtrfs(path), __func__, path, At(path).btrfs_uuid, uuid);
  }
  [[nodiscard]] int ReadBtrfsSuperblock(const std::string& path, BtrfsSuperblock& superblock) override {
    return Answer(IsBtrfs(path), __func__, path, {At(path).btrfs_magic, At(path).btrfs_uuid}, superblock);
  }
  [[nodiscard]] int GetExtUuid(const std::string& path, std::string& uuid) override {
    return Answer(!IsBtrfs(path), __func__, path, At(path).uuid, uuid);
  }
  [[nodiscard]] int ListMountPoints(std::vector<std::string>& result) override {
    return Answer(true, __func__, {}, mount_points, result);
  }

 protected:
  // The result of an operation that fails although there is an answer, or 0.
  [[nodiscard]] virtual int Failure(const std::string& /*operation*/, const std::string& /*path*/) const {
    return 0;
  }

 private:
  [[nodiscard]] const VolumeIdentity& At(const std::string& path) const {
    const auto found = recorded.find(path);
    return found == recorded.end() ? own : found->second.back();
  }
  [[nodiscard]] bool IsBtrfs(const std::string& path) const {
    return At(path).type == FileSystemType::kBtrfs;
  }
  template <typename Value>
  [[nodiscard]] int Answer(bool has_answer, const char* operation, const std::string& path,
                           const Value& value, Value& result) const {
    const int failure = has_answer ? Failure(operation, path) : kNoAnswer;
    if (failure == 0) result = value;
    return failure;
  }
};

}  // namespace platform::memory
