#include "ctl/rehearsal_machine.h"

namespace ctl {

std::string RehearsalVolumes::Real(const std::string& path) const {
  const bool is_copy = (path + "/").starts_with(copies_ + "/");
  return is_copy ? volume_ + path.substr(copies_.size()) : path;
}

int RehearsalVolumes::PLATMountVolInfoGet(const std::string& path, platform::VolumeInfo& info) {
  return host_.PLATMountVolInfoGet(Real(path), info);
}

int RehearsalVolumes::GetShareBinPath(const std::string& path, std::string& bin_path) {
  return host_.GetShareBinPath(Real(path), bin_path);
}

int RehearsalVolumes::GetFileSystemType(const std::string& path, platform::FileSystemType& type) {
  return host_.GetFileSystemType(Real(path), type);
}

int RehearsalVolumes::GetBtrfsUuid(const std::string& path, platform::FileSystemUuid& uuid) {
  return host_.GetBtrfsUuid(Real(path), uuid);
}

int RehearsalVolumes::ReadBtrfsSuperblock(const std::string& path, platform::BtrfsSuperblock& superblock) {
  return host_.ReadBtrfsSuperblock(Real(path), superblock);
}

int RehearsalVolumes::GetExtUuid(const std::string& path, std::string& uuid) {
  return host_.GetExtUuid(Real(path), uuid);
}

int RehearsalVolumes::ListMountPoints(std::vector<std::string>& mount_points) {
  return host_.ListMountPoints(mount_points);
}

}  // namespace ctl
