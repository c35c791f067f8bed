#include "platform/sdk/volume_uuid.h"

#include <array>
#include <cstdio>
#include <mutex>

#include "logger/component_log.h"

namespace platform::sdk {
namespace {

constexpr logger::Component kSdk = {"sdk_cpp_debug", "sdk-cpp"};
constexpr logger::Component kOldBtrfs = {"sdk_cpp_debug", "btrfs/btrfs-old"};

std::mutex& ProcessLock() {
  static std::mutex lock;
  return lock;
}

// The sixteen bytes in the order given, in groups of four, two, two, two and six.
std::string PrintBytes(const FileSystemUuid& uuid, const std::array<std::size_t, 16>& order) {
  std::string text;
  std::array<char, 3> digits{};
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    (void)std::snprintf(digits.data(), digits.size(), "%02x", unsigned{uuid.at(order.at(i))});  // always fits
    text += digits.data();
  }
  return text;
}

// Without the lock, for the operations that hold it.
int AskBtrfsUuid(Volumes& volumes, const std::string& path, std::string& uuid) {
  FileSystemUuid bytes{};
  const int result = volumes.GetBtrfsUuid(path, bytes);
  if (result >= 0) uuid = BtrfsUuidToNewForm(bytes);
  return result < 0 ? -1 : 0;
}

}  // namespace

std::string BtrfsUuidToNewForm(const FileSystemUuid& uuid) {
  return PrintBytes(uuid, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
}

std::string BtrfsUuidToOldForm(const FileSystemUuid& uuid) {
  return PrintBytes(uuid, {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15});
}

int GetVolumeUuid(Volumes& volumes, const std::string& path, std::string& uuid) {
  std::string bin_path;
  if (volumes.GetShareBinPath(path, bin_path) < 0) {
    logger::ComponentError(kSdk, "Failed to get sharebin path of '%s'\n", path);
    return -1;
  }
  FileSystemType type = FileSystemType::kOther;
  if (volumes.GetFileSystemType(bin_path, type) < 0) {
    logger::ComponentError(kSdk, "Failed to get file system property from '%s'\n", bin_path);
    return -1;
  }
  const std::lock_guard<std::mutex> lock(ProcessLock());
  switch (type) {
    case FileSystemType::kBtrfs:
      return AskBtrfsUuid(volumes, bin_path, uuid);
    case FileSystemType::kExt4:
    case FileSystemType::kExt3:
      return volumes.GetExtUuid(bin_path, uuid) < 0 ? -1 : 0;
    case FileSystemType::kEcryptfs:
    case FileSystemType::kOther:
      break;
  }
  logger::ComponentError(kSdk, "Unknow file system type: %d ('%s')\n", static_cast<int>(type), bin_path);
  return -1;
}

int GetNewBtrfsUuid(Volumes& volumes, const std::string& path, std::string& uuid) {
  const std::lock_guard<std::mutex> lock(ProcessLock());
  return AskBtrfsUuid(volumes, path, uuid);
}

int GetOldBtrfsUuid(Volumes& volumes, const std::string& path, std::string& uuid) {
  const std::lock_guard<std::mutex> lock(ProcessLock());
  BtrfsSuperblock superblock{};
  if (volumes.ReadBtrfsSuperblock(path, superblock) < 0) return -1;
  if (superblock.magic != kBtrfsMagic) {
    // The value on the device, then the value that belongs there.
    logger::ComponentError(kOldBtrfs, "Magic mismatch %llx:%llx\n", superblock.magic, kBtrfsMagic);
    return -1;
  }
  uuid = BtrfsUuidToOldForm(superblock.fsid);
  return 0;
}

}  // namespace platform::sdk
