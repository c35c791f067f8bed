#include "platform/host/host_volumes.h"

#include <blkid/blkid.h>
#include <fcntl.h>
#include <linux/btrfs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "base/file_descriptor.h"
#include "base/retry.h"
#include "platform/host/real_path.h"
#include "platform/uuid_text.h"

namespace platform::host {
namespace {

// Where a btrfs file system says who it is, on its first device.
constexpr off_t kBtrfsSuperblock = 65536;
constexpr std::size_t kBtrfsFsidOffset = 32;
constexpr std::size_t kBtrfsMagicOffset = 64;
constexpr std::size_t kBtrfsHeadSize = kBtrfsMagicOffset + sizeof(unsigned long long);

struct ProbeReleaser {
  void operator()(blkid_struct_probe* probe) const { blkid_free_probe(probe); }
};

base::FileDescriptor Open(const std::string& path, int flags) {
  return base::FileDescriptor(
      base::RetryBusy([&] { return ::open(path.c_str(), flags | O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
}

// What says that a path leads nowhere, as opposed to a machine that cannot tell.
bool IsAbsence(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
}

// Each mount of btrfs has a number of its own, which is that of no device and has the major number 0.
bool HasDeviceNumber(const Mount& mount) { return major(mount.device_number) != 0; }

bool IsDeviceOf(const base::FileDescriptor& device, const Mount& mount) {
  struct stat status {};
  if (!device.is_open() || ::fstat(device.get(), &status) != 0 || !S_ISBLK(status.st_mode)) return false;
  return !HasDeviceNumber(mount) || status.st_rdev == mount.device_number;
}

// Opens the device of a mount by the name in the mount table, or by its number where that name is no path or
// belongs to another device by now.
base::FileDescriptor OpenDevice(const Mount& mount) {
  if (mount.source.starts_with('/')) {
    base::FileDescriptor device = Open(mount.source, 0);
    if (IsDeviceOf(device, mount)) return device;
  }
  if (!HasDeviceNumber(mount)) return {};
  const std::unique_ptr<char, decltype(&std::free)> name(blkid_devno_to_devname(mount.device_number),
                                                         &std::free);
  if (!name) return {};
  base::FileDescriptor device = Open(name.get(), 0);
  return IsDeviceOf(device, mount) ? std::move(device) : base::FileDescriptor();
}

// Clears errno first, because a probe can fail without a system call, and RetryBusy() looks at errno.
int SafeProbe(blkid_probe probe) {
  errno = 0;
  return blkid_do_safeprobe(probe);
}

// Reads the uuid of an ext2, ext3 or ext4 file system from its device.
std::optional<std::string> ProbeExtUuid(int device) {
  std::array<char, 5> ext2 = {"ext2"};
  std::array<char, 5> ext3 = {"ext3"};
  std::array<char, 5> ext4 = {"ext4"};
  std::array<char*, 4> types = {ext2.data(), ext3.data(), ext4.data(), nullptr};
  const std::unique_ptr<blkid_struct_probe, ProbeReleaser> probe(blkid_new_probe());
  const char* uuid = nullptr;
  if (!probe || blkid_probe_set_device(probe.get(), device, 0, 0) != 0 ||
      blkid_probe_enable_superblocks(probe.get(), 1) != 0 ||
      blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_UUID) != 0 ||
      blkid_probe_filter_superblocks_type(probe.get(), BLKID_FLTR_ONLYIN, types.data()) != 0 ||
      base::RetryBusy([&] { return SafeProbe(probe.get()); }) != 0 ||
      blkid_probe_lookup_value(probe.get(), "UUID", &uuid, nullptr) != 0) {
    return std::nullopt;
  }
  return uuid;
}

// Asks the mounted file system itself. That works from Linux 6.0 on; older headers do not name the requests.
std::optional<std::string> AskExtUuid(const std::string& mount_point) {
  struct ExtAnswer {
    std::uint32_t length;
    std::uint32_t flags;
    FileSystemUuid uuid;
  };
  struct AnyAnswer {
    std::uint8_t length;
    FileSystemUuid uuid;
  };
  constexpr auto kAskExt = _IOR('f', 44, std::uint64_t);  // EXT4_IOC_GETFSUUID counts the head alone
  constexpr auto kAskAny = _IOR(0x15, 0, AnyAnswer);      // FS_IOC_GETFSUUID
  const base::FileDescriptor folder = Open(mount_point, 0);
  ExtAnswer ext{.length = sizeof(ext.uuid), .flags = 0, .uuid = {}};
  if (::ioctl(folder.get(), kAskExt, &ext) == 0 && ext.length == ext.uuid.size()) return PrintUuid(ext.uuid);
  AnyAnswer any{};
  if (::ioctl(folder.get(), kAskAny, &any) == 0 && any.length == any.uuid.size()) return PrintUuid(any.uuid);
  return std::nullopt;
}

}  // namespace

int HostVolumes::FindMount(const std::string& path, Mount& mount, bool* is_mount_point) const {
  // The path is resolved before the table is read, because resolving it may mount the volume.
  const std::optional<std::string> resolved = RealPath(path);
  if (!resolved) return IsAbsence(errno) ? kNoAnswer : kCouldNotAsk;
  std::vector<Mount> mounts;
  if (ReadMountInfo(mount_info_, mounts) != 0) return kCouldNotAsk;
  const Mount* found = FindMountOf(mounts, *resolved);
  if (found == nullptr) return kNoAnswer;
  if (is_mount_point != nullptr) *is_mount_point = found->mount_point == *resolved;
  mount = *found;
  return 0;
}

int HostVolumes::PLATMountVolInfoGet(const std::string& path, VolumeInfo& info) {
  Mount mount;
  bool is_mount_point = false;
  if (FindMount(path, mount, &is_mount_point) != 0 || !is_mount_point) return kNoAnswer;
  info = {mount.mount_point, mount.source, mount.file_system};
  return 0;
}

int HostVolumes::GetShareBinPath(const std::string& path, std::string& bin_path) {
  Mount mount;
  if (const int result = FindMount(path, mount); result != 0) return result;
  bin_path = mount.mount_point;
  return 0;
}

int HostVolumes::GetFileSystemType(const std::string& path, FileSystemType& type) {
  struct Name {
    const char* name;
    FileSystemType type;
  };
  static constexpr std::array<Name, 4> kNames = {{{"ext4", FileSystemType::kExt4},
                                                  {"btrfs", FileSystemType::kBtrfs},
                                                  {"ecryptfs", FileSystemType::kEcryptfs},
                                                  {"ext3", FileSystemType::kExt3}}};
  Mount mount;
  if (const int result = FindMount(path, mount); result != 0) return result;
  const auto* known = std::find_if(kNames.begin(), kNames.end(),
                                   [&](const Name& name) { return mount.file_system == name.name; });
  type = known == kNames.end() ? FileSystemType::kOther : known->type;
  return 0;
}

int HostVolumes::GetBtrfsUuid(const std::string& path, FileSystemUuid& uuid) {
  Mount mount;
  if (const int result = FindMount(path, mount); result != 0) return result;
  if (mount.file_system != "btrfs") return kNoAnswer;
  const base::FileDescriptor folder = Open(mount.mount_point, 0);
  btrfs_ioctl_fs_info_args info{};
  if (!folder.is_open() ||
      base::RetryBusy([&] { return ::ioctl(folder.get(), BTRFS_IOC_FS_INFO, &info); }) != 0) {
    return kCouldNotAsk;
  }
  static_assert(sizeof(info.fsid) == std::tuple_size_v<FileSystemUuid>);
  std::copy_n(std::begin(info.fsid), uuid.size(), uuid.begin());
  return 0;
}

int HostVolumes::ReadBtrfsSuperblock(const std::string& path, BtrfsSuperblock& superblock) {
  Mount mount;
  if (FindMount(path, mount) != 0 || mount.file_system != "btrfs") return kNoAnswer;
  const base::FileDescriptor device = OpenDevice(mount);
  if (!device.is_open()) return kNoAnswer;
  std::array<std::uint8_t, kBtrfsHeadSize> head{};
  const ssize_t length =
      base::RetryBusy([&] { return ::pread(device.get(), head.data(), head.size(), kBtrfsSuperblock); });
  if (length != static_cast<ssize_t>(head.size())) return kNoAnswer;
  std::memcpy(&superblock.magic, &head[kBtrfsMagicOffset], sizeof(superblock.magic));
  std::copy_n(&head[kBtrfsFsidOffset], superblock.fsid.size(), superblock.fsid.begin());
  return 0;
}

int HostVolumes::GetExtUuid(const std::string& path, std::string& uuid) {
  Mount mount;
  if (const int result = FindMount(path, mount); result != 0) return result;
  if (!mount.file_system.starts_with("ext")) return kNoAnswer;
  std::optional<std::string> found;
  if (const base::FileDescriptor device = OpenDevice(mount); device.is_open()) {
    found = ProbeExtUuid(device.get());
  }
  if (!found) found = AskExtUuid(mount.mount_point);
  if (!found) return kCouldNotAsk;
  uuid = *found;
  return 0;
}

int HostVolumes::ListMountPoints(std::vector<std::string>& mount_points) {
  return ReadMountPoints(mounts_, mount_points);
}

}  // namespace platform::host
