#include "updater/server/btrfs_uuids.h"

#include <cstdio>
#include <vector>

#include "db-util/database.h"
#include "db-util/query.h"
#include "logger/updater_log.h"
#include "platform/sdk/volume_uuid.h"

namespace updater::server {
namespace {

using db_util::ExecScript;
using db_util::ExecSql;
using logger::Succeeded;

// A mac attribute holds the uuid somewhere in its text.
constexpr const char* kRenameInView =
    "UPDATE view_db.node_table SET v_file_uuid = %Q WHERE v_file_uuid = %Q;"
    "UPDATE view_db.node_table SET node_delta_file_uuid = %Q WHERE node_delta_file_uuid = %Q;"
    "UPDATE view_db.node_table SET v_mac_attr = replace(v_mac_attr, %Q, %Q);"
    "UPDATE view_db.version_table SET file_uuid = %Q WHERE file_uuid = %Q;"
    "UPDATE view_db.version_table SET mac_attr = replace(mac_attr, %Q, %Q);";

struct StoredVolume {
  std::string uuid;
  std::string repo_path;
};

int ReadVolumes(sqlite3* db, std::vector<StoredVolume>& stored) {
  const db_util::QueryResult result = db_util::ForEachRow(
      db, "SELECT uuid, repo_path FROM data_db.volume_table;", [&stored](sqlite3_stmt* row) {
        stored.push_back({.uuid = db_util::ColumnText(row, 0), .repo_path = db_util::ColumnText(row, 1)});
        return true;
      });
  if (result.ok()) return 0;
  if (result.failed_at == db_util::QueryResult::Stage::kPrepare) {
    logger::UpdaterLog("sqlite3_prepare_v2: [%d] %s\n", result.code, result.message);
  } else {
    logger::UpdaterLog("sqlite3_step: [%d] %s\n", result.code, result.message);
  }
  return -1;
}

int AddRename(platform::Volumes& volumes, const StoredVolume& stored, UuidRenames& renames) {
  platform::FileSystemType type{};
  if (!Succeeded(volumes.GetFileSystemType(stored.repo_path, type), "Failed to check btrfs volume '%s'\n",
                 stored.repo_path)) {
    return -1;
  }
  if (type != platform::FileSystemType::kBtrfs) return 0;
  logger::UpdaterLog("Update repo path '%s' uuid\n", stored.repo_path);
  std::string old_form;
  std::string new_form;
  if (!Succeeded(platform::sdk::GetOldBtrfsUuid(volumes, stored.repo_path, old_form),
                 "Failed to get old uuid from '%s'\n", stored.repo_path) ||
      !Succeeded(platform::sdk::GetNewBtrfsUuid(volumes, stored.repo_path, new_form),
                 "Failed to get new uuid from '%s'\n", stored.repo_path)) {
    return -1;
  }
  if (stored.uuid == old_form && old_form != new_form) renames.emplace(old_form, new_form);
  return 0;
}

int RenameInAttachedView(sqlite3* db, ViewId view, const UuidRenames& renames) {
  if (!Succeeded(ExecScript(db, "BEGIN TRANSACTION;"), "Failed to begin transaction\n")) return -1;
  for (const auto& [from, to] : renames) {
    if (!Succeeded(ExecSql(db, kRenameInView, to, from, to, from, from, to, to, from, from, to),
                   "Failed to update view db (%llu)\n", view)) {
      (void)ExecScript(db, "ROLLBACK TRANSACTION;");  // the failure is reported already
      return -1;
    }
  }
  return ExecScript(db, "END TRANSACTION;");
}

}  // namespace

int FindBtrfsRenames(sqlite3* db, platform::Volumes& volumes, UuidRenames& renames) {
  std::vector<StoredVolume> stored;
  if (ReadVolumes(db, stored) < 0) return -1;
  for (const StoredVolume& volume : stored) {
    if (AddRename(volumes, volume, renames) < 0) return -1;
  }
  return 0;
}

int RenameUuidsInVolumeTable(sqlite3* db, const UuidRenames& renames) {
  for (const auto& [from, to] : renames) {
    if (!Succeeded(ExecSql(db, "UPDATE data_db.volume_table SET uuid = %Q WHERE uuid = %Q;", to, from),
                   "Failed to update volume table btrfs uuid\n")) {
      return -1;
    }
  }
  return 0;
}

int RenameUuidsInView(sqlite3* db, const FolderDatabases& folders, ViewId view, const UuidRenames& renames) {
  if (!Succeeded(AttachDatabase(db, "view_db", folders.ViewDatabase(view)), "Failed to attach view db %llu\n",
                 view)) {
    return -1;
  }
  const int renamed = RenameInAttachedView(db, view, renames);
  const int detached = ExecScript(db, "DETACH DATABASE view_db;");
  return renamed == 0 && detached == 0 ? 0 : -1;
}

int RenameFileFolders(const FolderDatabases& folders, const UuidRenames& renames) {
  for (const auto& [from, to] : renames) {
    const std::string source = folders.FileFolder(from);
    const std::string target = folders.FileFolder(to);
    if (!Succeeded(std::rename(source.c_str(), target.c_str()),
                   "Failed to rename file-db dir path '%s' -> '%s'\n", source, target)) {
      return -1;
    }
  }
  return 0;
}

}  // namespace updater::server
