#include "updater/server/btrfs_uuids.h"

#include <cstdio>
#include <vector>

#include "db-util/query.h"
#include "platform/sdk/volume_uuid.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"

namespace updater::server {
namespace {

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

bool ReadVolumes(sqlite3* db, std::vector<StoredVolume>& stored) {
  const db_util::Status status = db_util::ForEachRow(
      db, "SELECT uuid, repo_path FROM data_db.volume_table;", [&stored](sqlite3_stmt* row) {
        stored.push_back({.uuid = db_util::ColumnText(row, 0), .repo_path = db_util::ColumnText(row, 1)});
        return true;
      });
  return Check(status, "%s: [%d] %s\n", status.FailedCall(), status.code, status.message);
}

bool AddRename(platform::Volumes& volumes, const StoredVolume& stored, UuidRenames& renames) {
  platform::FileSystemType type{};
  if (!Check(volumes.GetFileSystemType(stored.repo_path, type), "Failed to check btrfs volume '%s'\n",
             stored.repo_path)) {
    return false;
  }
  if (type != platform::FileSystemType::kBtrfs) return true;
  UpdaterLog("Update repo path '%s' uuid\n", stored.repo_path);
  std::string old_form;
  std::string new_form;
  if (!Check(platform::sdk::GetOldBtrfsUuid(volumes, stored.repo_path, old_form),
             "Failed to get old uuid from '%s'\n", stored.repo_path) ||
      !Check(platform::sdk::GetNewBtrfsUuid(volumes, stored.repo_path, new_form),
             "Failed to get new uuid from '%s'\n", stored.repo_path)) {
    return false;
  }
  if (stored.uuid == old_form && old_form != new_form) renames.emplace(old_form, new_form);
  return true;
}

bool RenameInAttachedView(sqlite3* db, ViewId view, const UuidRenames& renames) {
  if (!Check(ExecScript(db, "BEGIN TRANSACTION;"), "Failed to begin transaction\n")) return false;
  for (const auto& [from, to] : renames) {
    if (!Check(ExecSql(db, kRenameInView, to, from, to, from, from, to, to, from, from, to),
               "Failed to update view db (%llu)\n", view)) {
      (void)ExecScript(db, "ROLLBACK TRANSACTION;");  // only ends it, so that the view can be detached
      return false;
    }
  }
  return ExecScript(db, "END TRANSACTION;") == 0;
}

}  // namespace

bool FindBtrfsRenames(sqlite3* db, platform::Volumes& volumes, UuidRenames& renames) {
  std::vector<StoredVolume> stored;
  if (!ReadVolumes(db, stored)) return false;
  for (const StoredVolume& volume : stored) {
    if (!AddRename(volumes, volume, renames)) return false;
  }
  return true;
}

bool RenameUuidsInVolumeTable(sqlite3* db, const UuidRenames& renames) {
  for (const auto& [from, to] : renames) {
    if (!Check(ExecSql(db, "UPDATE data_db.volume_table SET uuid = %Q WHERE uuid = %Q;", to, from),
               "Failed to update volume table btrfs uuid\n")) {
      return false;
    }
  }
  return true;
}

bool RenameUuidsInView(sqlite3* db, const PackagePaths& paths, ViewId view, const UuidRenames& renames) {
  if (!Check(AttachDatabase(db, "view_db", paths.ViewDatabase(view)), "Failed to attach view db %llu\n",
             view)) {
    return false;
  }
  const bool renamed = RenameInAttachedView(db, view, renames);
  const bool detached = ExecScript(db, "DETACH DATABASE view_db;") == 0;
  return renamed && detached;
}

bool RenameFileFolders(const PackagePaths& paths, const UuidRenames& renames) {
  for (const auto& [from, to] : renames) {
    const std::string source = paths.FileFolder(from);
    const std::string target = paths.FileFolder(to);
    if (!Check(std::rename(source.c_str(), target.c_str()),
               "Failed to rename file-db dir path '%s' -> '%s'\n", source, target)) {
      return false;
    }
  }
  return true;
}

}  // namespace updater::server
