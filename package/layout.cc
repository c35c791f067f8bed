#include "package/layout.h"

namespace package {
namespace {

PackagePaths LivePaths(const std::string& package_folder) {
  PackagePaths live = PathsInSyncFolder(package_folder + "/@sync");
  live.client = package_folder + "/@clientd/db.sqlite";
  return live;
}

PackagePaths CopiesOf(const PackagePaths& live) {
  const std::string suffix = ".bak";
  return {.sync_folder = live.sync_folder,
          .data = live.data + suffix,
          .log = live.log + suffix,
          .user = live.user + suffix,
          .client = live.client + suffix,
          .view_folder = live.view_folder + suffix,
          .file_folder = live.file_folder + suffix};
}

}  // namespace

std::string PackagePaths::ViewFolder(const std::string& view) const { return view_folder + "/" + view; }

std::string PackagePaths::ViewDatabase(const std::string& view) const {
  return ViewFolder(view) + "/" + kViewDatabase;
}

std::string PackagePaths::ViewDatabase(base::ViewId view) const { return ViewDatabase(std::to_string(view)); }

std::string PackagePaths::FileFolder(const std::string& uuid) const { return file_folder + "/" + uuid; }

std::string PackagePaths::FileDatabase(const std::string& uuid) const {
  return FileFolder(uuid) + "/" + kFileDatabase;
}

PackagePaths PathsInSyncFolder(const std::string& sync_folder) {
  return {.sync_folder = sync_folder,
          .data = sync_folder + "/syncfolder-db.sqlite",
          .log = sync_folder + "/log-db.sqlite",
          .user = sync_folder + "/user-db.sqlite",
          .client = {},
          .view_folder = sync_folder + "/view",
          .file_folder = sync_folder + "/file"};
}

VolumePaths::VolumePaths(const std::string& path)
    : volume(path),
      package_folder(path + "/@stratofolder"),
      temporary_folder(path + "/@tmp"),
      client_sync_folder(package_folder + "/@sync-client"),
      live(LivePaths(package_folder)),
      copies(CopiesOf(live)),
      intent(live.sync_folder + "/.upgrade-commit") {}

}  // namespace package
