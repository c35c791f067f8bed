#include "ctl/demo_volumes.h"

#include "db-util/database.h"
#include "db-util/query.h"
#include "logger/recording_sink.h"
#include "platform/host/host_volumes.h"
#include "platform/sdk/volume_uuid.h"

namespace ctl {

using platform::FileSystemType;

VolumeIdentity MadeUpIdentity() {
  return {.type = FileSystemType::kExt4, .uuid = "3c6e0b8a-9c15-424a-8240-63ff7cf2ab1d"};
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

void TellVolumes(const VolumeIdentity& own, const RecordedVolumes& recorded,
                 platform::memory::MemoryVolumes& volumes) {
  volumes.own = own;
  const std::string old_form = platform::sdk::BtrfsUuidToOldForm(own.btrfs_uuid);
  for (const auto& [uuid, path] : recorded) {
    const bool is_own = own.type == FileSystemType::kBtrfs && (uuid == own.uuid || uuid == old_form);
    VolumeIdentity identity = own;
    if (!is_own) identity = {.type = FileSystemType::kExt4, .uuid = uuid};
    volumes.recorded[path].push_back(identity);
  }
}

}  // namespace ctl
