#include "ctl/demo_volumes.h"

#include <sys/stat.h>

#include <algorithm>

#include "db-util/database.h"
#include "db-util/query.h"
#include "logger/recording_sink.h"
#include "platform/host/host_volumes.h"
#include "platform/sdk/volume_uuid.h"

namespace ctl {

using platform::FileSystemType;

VolumeIdentity MadeUpIdentity() {
  return {.type = FileSystemType::kExt4, .uuid = "3c6e0b8a-9c15-424a-8240-63ff7cf2ab1d", .btrfs_uuid = {}};
}

VolumeIdentity ReadIdentity(const std::string& folder) {
  logger::RecordingSink ignored;  // a file system without a uuid is no failure here
  const logger::ScopedSink sink(ignored);
  platform::host::HostVolumes host{platform::SystemPaths()};
  VolumeIdentity own;
  if (host.GetFileSystemType(folder, own.type) < 0 ||
      platform::sdk::GetVolumeUuid(host, folder, own.uuid) < 0 ||
      (own.type == FileSystemType::kBtrfs && host.GetBtrfsUuid(folder, own.btrfs_uuid) < 0)) {
    return MadeUpIdentity();
  }
  return own;
}

RecordedVolumes ReadRecordedVolumes(const std::string& data_database) {
  RecordedVolumes recorded;
  db_util::Database db;
  if (!db_util::OpenQuietly(data_database, db, db_util::OpenMode::kReadWrite).ok()) return recorded;
  // The run itself says what is wrong with the database, and passes the same rows over.
  (void)db_util::ForEachRow(db.get(), "SELECT uuid, repo_path FROM volume_table;", [&](sqlite3_stmt* row) {
    std::string uuid;
    std::string path;
    if (db_util::ReadWholeTextOrNull(row, 0, uuid) && db_util::ReadWholeText(row, 1, path)) {
      recorded.insert_or_assign(uuid, path);
    }
    return true;
  });
  return recorded;
}

DemoVolumes::DemoVolumes(std::string volume, VolumeIdentity own, const RecordedVolumes& recorded)
    : volume_(std::move(volume)), own_(std::move(own)) {
  const std::string old_form = platform::sdk::BtrfsUuidToOldForm(own_.btrfs_uuid);
  for (const auto& [uuid, path] : recorded) {
    const bool is_own = own_.type == FileSystemType::kBtrfs && (uuid == own_.uuid || uuid == old_form);
    recorded_[path].push_back(
        is_own ? own_ : VolumeIdentity{.type = FileSystemType::kExt4, .uuid = uuid, .btrfs_uuid = {}});
  }
}

const VolumeIdentity& DemoVolumes::At(const std::string& path) const {
  const auto found = recorded_.find(path);
  return found == recorded_.end() ? own_ : found->second.back();
}

int DemoVolumes::PLATMountVolInfoGet(const std::string& path, platform::VolumeInfo& info) {
  struct stat status = {};
  if (path != volume_ || stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return -1;
  info = {.mount_point = volume_, .device = "a folder", .file_system = "ext4"};
  return 0;
}

// For each row, in the order of the uuids, the check after the upgrade calls this operation first.
int DemoVolumes::GetShareBinPath(const std::string& path, std::string& bin_path) {
  const auto found = recorded_.find(path);
  if (found != recorded_.end()) {
    std::rotate(found->second.begin(), found->second.begin() + 1, found->second.end());
  }
  bin_path = path;
  return 0;
}

int DemoVolumes::GetFileSystemType(const std::string& path, FileSystemType& type) {
  type = At(path).type;
  return 0;
}

int DemoVolumes::GetBtrfsUuid(const std::string& path, platform::FileSystemUuid& uuid) {
  if (At(path).type != FileSystemType::kBtrfs) return -1;
  uuid = At(path).btrfs_uuid;
  return 0;
}

int DemoVolumes::ReadBtrfsSuperblock(const std::string& path, platform::BtrfsSuperblock& superblock) {
  if (At(path).type != FileSystemType::kBtrfs) return -1;
  superblock = {.magic = platform::kBtrfsMagic, .fsid = At(path).btrfs_uuid};
  return 0;
}

int DemoVolumes::GetExtUuid(const std::string& path, std::string& uuid) {
  if (At(path).type == FileSystemType::kBtrfs) return -1;
  uuid = At(path).uuid;
  return 0;
}

int DemoVolumes::ListMountPoints(std::vector<std::string>& mount_points) {
  mount_points.clear();
  return 0;
}

}  // namespace ctl
