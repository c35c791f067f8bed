#include "updater/server/folder_updater.h"

#include <utility>
#include <vector>

#include "updater/server/settings_rows.h"

namespace updater::server {

FolderUpdater::FolderUpdater(const UpdaterContext& context, int from, int to, SuccessLine success,
                             DatabasePaths paths, FolderDatabases folders)
    : ServerUpdater(context,
                    {.from = {kMasterBranch, from},
                     .to = {kMasterBranch, to},
                     .databases = DatabaseSet::kWithLog,
                     .scope = VersionScope::kAll,
                     .success = success},
                    std::move(paths)),
      folders_(std::move(folders)) {}

int FolderUpdater::ForEachView(const std::function<int(ViewId)>& work) {
  std::vector<ViewId> views;
  if (!logger::Succeeded(ReadViewIds(db(), views), "Failed to get all views\n")) return -1;
  for (const ViewId view : views) {
    if (work(view) < 0) return -1;
  }
  return 0;
}

int FolderUpdater::ExecOnView(ViewId view, const std::string& body) {
  return ExecAttached(db(), "view_db", folders_.ViewDatabase(view), body);
}

int FolderUpdater::UpdateViewRotations(const logger::SqlFormat<long long>& statements) {
  SettingsRows rows(db());
  return ForEachView([&](ViewId view) {
    ViewId row = 0;
    if (rows.Find(view, row) < 0) return -1;
    std::string script;
    const bool updated =
        db_util::FormatSql<long long>(script, statements, StoredId(row)) && ExecOnView(view, script) == 0;
    if (updated) return 0;
    logger::UpdaterLog("Failed to update rotate_cnt for view %llu\n", view);
    logger::UpdaterLog("Failed to update rotate count for view %llu\n", view);
    return -1;
  });
}

int FolderUpdater::ListVersionFolders() { return folders_.List(); }

int FolderUpdater::UpdateFolderVersions() { return folders_.WriteVersion(db(), GetToVersion()); }

}  // namespace updater::server
