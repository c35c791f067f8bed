#include "platform/sdk/volume_uuid.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "logger/component_log.h"
#include "platform/uuid_text.h"

namespace platform::sdk {
namespace {

constexpr logger::Component kSdk = {"sdk_cpp_debug", "sdk-cpp"};
constexpr logger::Component kOldBtrfs = {"sdk_cpp_debug", "btrfs/btrfs-old"};

std::mutex& ProcessLock() {
  static std::mutex lock;
  return lock;
}

// For callers that hold the lock.
int AskBtrfsUuid(Volumes& volumes, const std::string& path, std::string& uuid) {
  FileSystemUuid bytes{};
  const int result = volumes.GetBtrfsUuid(path, bytes);
  if (result >= 0) uuid = PrintUuid(bytes);
  return std::min(result, 0);
}

}  // namespace

std::string BtrfsUuidToOldForm(const FileSystemUuid& uuid) {
  FileSystemUuid turned = uuid;
  std::reverse(turned.begin(), turned.begin() + 4);
  std::swap(turned[4], turned[5]);
  std::swap(turned[6], turned[7]);
  return PrintUuid(turned);
}

int GetVolumeUuid(Volumes& volumes, const std::string& path, std::string& uuid) {
  std::string bin_path;
  if (const int result = volumes.GetShareBinPath(path, bin_path); result < 0) {
    logger::ComponentError(kSdk, "Failed to get sharebin path of '%s'\n", path);
    return result;
  }
  FileSystemType type = FileSystemType::kOther;
  if (const int result = volumes.GetFileSystemType(bin_path, type); result < 0) {
    logger::ComponentError(kSdk, "Failed to get file system property from '%s'\n", bin_path);
    return result;
  }
  const std::lock_guard<std::mutex> lock(ProcessLock());
  switch (type) {
    case FileSystemType::kBtrfs:
      return AskBtrfsUuid(volumes, bin_path, uuid);
    case FileSystemType::kExt4:
    case FileSystemType::kExt3:
      return std::min(volumes.GetExtUuid(bin_path, uuid), 0);
    case FileSystemType::kEcryptfs:
    case FileSystemType::kOther:
      break;
  }
  logger::ComponentError(kSdk, "Unknow file system type: %d ('%s')\n", static_cast<int>(type), bin_path);
  return kNoAnswer;
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
