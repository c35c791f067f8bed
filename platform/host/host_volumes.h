// The storage volumes, as the kernel's mount table and the file systems themselves tell them.
#pragma once

#include <string>

#include "platform/host/mount_table.h"
#include "platform/system_paths.h"
#include "platform/volumes.h"

namespace platform::host {

// Every mounted file system counts as a volume. Its type is the mount table's: ext2, ext3 and ext4 cannot be
// told apart by the numbers of statfs.
class HostVolumes : public Volumes {
 public:
  explicit HostVolumes(const SystemPaths& paths) : mount_info_(paths.mount_info), mounts_(paths.mounts) {}

  [[nodiscard]] int PLATMountVolInfoGet(const std::string& path, VolumeInfo& info) override;
  [[nodiscard]] int GetShareBinPath(const std::string& path, std::string& bin_path) override;
  [[nodiscard]] int GetFileSystemType(const std::string& path, FileSystemType& type) override;
  [[nodiscard]] int GetBtrfsUuid(const std::string& path, FileSystemUuid& uuid) override;
  [[nodiscard]] int ReadBtrfsSuperblock(const std::string& path, BtrfsSuperblock& superblock) override;
  [[nodiscard]] int GetExtUuid(const std::string& path, std::string& uuid) override;
  [[nodiscard]] int ListMountPoints(std::vector<std::string>& mount_points) override;

 private:
  // The mount on which the path lies, links resolved; true in `is_mount_point` when it is its mount point.
  [[nodiscard]] int FindMount(const std::string& path, Mount& mount, bool* is_mount_point = nullptr) const;

  std::string mount_info_;
  std::string mounts_;
};

}  // namespace platform::host
