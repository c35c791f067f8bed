// The storage volumes of a machine on which an upgrade runs in an ordinary folder.
//
// The databases name volumes of the machine that they come from. Here every one of them is there, and is the
// volume that was recorded: otherwise the check after the upgrade would remove its records.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/volumes.h"

namespace ctl {

// What a file system answers when it is asked who it is.
struct VolumeIdentity {
  platform::FileSystemType type = platform::FileSystemType::kExt4;
  std::string uuid;  // in its new form
  platform::FileSystemUuid btrfs_uuid = {};
};

// That of a folder whose own file system has none, and of every sample: an ext4 volume with a made-up uuid.
[[nodiscard]] VolumeIdentity MadeUpIdentity();

// That of the file system which holds the folder, as far as this process may ask it; made up otherwise.
[[nodiscard]] VolumeIdentity ReadIdentity(const std::string& folder);

// Uuid -> path: what the check after the upgrade reads from the volume table.
using RecordedVolumes = std::map<std::string, std::string>;

// Empty when the data database has no volume table (before 3400) or cannot be read.
[[nodiscard]] RecordedVolumes ReadRecordedVolumes(const std::string& data_database);

class DemoVolumes : public platform::Volumes {
 public:
  // `volume` counts as mounted. A recorded path is answered by its uuid: as the btrfs volume `own` where that
  // is meant, in either form, else as an ext4 volume. Every other path lies on `own`.
  DemoVolumes(std::string volume, VolumeIdentity own, const RecordedVolumes& recorded);

  [[nodiscard]] int PLATMountVolInfoGet(const std::string& path, platform::VolumeInfo& info) override;
  [[nodiscard]] int GetShareBinPath(const std::string& path, std::string& bin_path) override;
  [[nodiscard]] int GetFileSystemType(const std::string& path, platform::FileSystemType& type) override;
  [[nodiscard]] int GetBtrfsUuid(const std::string& path, platform::FileSystemUuid& uuid) override;
  [[nodiscard]] int ReadBtrfsSuperblock(const std::string& path,
                                        platform::BtrfsSuperblock& superblock) override;
  [[nodiscard]] int GetExtUuid(const std::string& path, std::string& uuid) override;
  // None, because the recorded shares do not lie on the mounts of this machine.
  [[nodiscard]] int ListMountPoints(std::vector<std::string>& mount_points) override;

 private:
  [[nodiscard]] const VolumeIdentity& At(const std::string& path) const;

  std::string volume_;
  VolumeIdentity own_;
  // By path. Several uuids of one path take turns, the one whose turn it is stands last.
  std::map<std::string, std::vector<VolumeIdentity>> recorded_;
};

}  // namespace ctl
