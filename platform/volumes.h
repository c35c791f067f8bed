// The storage volumes of the machine: what is mounted where, and what identifies a file system.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "base/interface.h"

namespace platform {

struct VolumeInfo {
  std::string mount_point;
  std::string device;       // as the mount table names it
  std::string file_system;  // "ext4", "btrfs", ...
};

// The numbers are logged.
enum class FileSystemType : int { kOther = 0, kExt4 = 1, kBtrfs = 2, kEcryptfs = 3, kExt3 = 4 };

using FileSystemUuid = std::array<std::uint8_t, 16>;

// What identifies a btrfs file system in the superblock on its device.
struct BtrfsSuperblock {
  unsigned long long magic;  // the eight bytes at +64, read in the machine's order
  FileSystemUuid fsid;       // the sixteen bytes at +32
};

inline constexpr unsigned long long kBtrfsMagic = 0x4D5F53665248425FULL;  // "_BHRfS_M"

// "There is none" and "could not ask" are different answers here, too: the first lets the records of a volume
// be removed.
inline constexpr int kNoAnswer = -1;
inline constexpr int kCouldNotAsk = -2;

// Every operation returns 0 on success and a negative value on failure, with its out argument unchanged:
// kCouldNotAsk when it is known that asking again may give another answer, otherwise kNoAnswer.
class Volumes : public base::Interface {
 public:
  // Negative when the path, links resolved, is not itself the mount point of a volume.
  [[nodiscard]] virtual int PLATMountVolInfoGet(const std::string& path, VolumeInfo& info) = 0;

  // The folder of the volume that holds `path`; the path need not be the mount point itself.
  [[nodiscard]] virtual int GetShareBinPath(const std::string& path, std::string& bin_path) = 0;
  [[nodiscard]] virtual int GetFileSystemType(const std::string& path, FileSystemType& type) = 0;

  // The uuid of the mounted btrfs file system that holds `path`, asked of the kernel.
  [[nodiscard]] virtual int GetBtrfsUuid(const std::string& path, FileSystemUuid& uuid) = 0;
  // The superblock on the device of the btrfs file system that holds `path`. The magic is not checked here.
  [[nodiscard]] virtual int ReadBtrfsSuperblock(const std::string& path, BtrfsSuperblock& superblock) = 0;
  // The uuid of the ext2/3/4 file system that holds `path`, as text in lower case: read from its device, or
  // asked of the kernel where the device cannot be reached.
  [[nodiscard]] virtual int GetExtUuid(const std::string& path, std::string& uuid) = 0;

  // Every mount point of the machine, escapes decoded, in the order of the mount table.
  [[nodiscard]] virtual int ListMountPoints(std::vector<std::string>& mount_points) = 0;
};

}  // namespace platform
