#include "ctl/restoration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <map>

#include "base/errno.h"
#include "base/path.h"
#include "ctl/output.h"
#include "ctl/stop_signals.h"
#include "ctl/working_copy_maker.h"
#include "file-op/file_op.h"
#include "logger/recording_sink.h"
#include "updater/intent_file.h"
#include "updater/placement.h"

namespace ctl {
namespace {

using package::VolumePaths;
using Kind = SavedItem::Kind;

std::string LiveOf(const VolumePaths& paths, const SavedItem& item) {
  return paths.package_folder + "/" + item.path;
}

// The folder of the client database may not be there yet.
std::string ExistingFolder(std::string folder) {
  while (file_op::Find(file_op::At(folder)) == 0) folder = base::FolderOf(folder);
  return folder;
}

struct Need {
  std::string folder;
  std::uint64_t bytes = 0;
};

// What the copies take on each file system.
int AddUpNeeds(const VolumePaths& paths, const SaveManifest& manifest, std::map<dev_t, Need>& needs,
               std::string& error) {
  constexpr std::uint64_t kBlock = 4096;
  constexpr std::uint64_t kForCommit = std::uint64_t{1} << 20;
  for (const SavedItem& item : manifest.items) {
    const bool is_client = LiveOf(paths, item) == paths.live.client;
    const std::string folder =
        is_client ? ExistingFolder(base::FolderOf(paths.live.client)) : paths.live.sync_folder;
    struct stat status {};
    if (stat(folder.c_str(), &status) < 0) {
      error = "cannot look into " + folder + ": " + base::Errno::Last().Text();
      return -1;
    }
    Need& need = needs.try_emplace(status.st_dev, Need{folder, kForCommit}).first->second;
    need.bytes += (static_cast<std::uint64_t>(item.bytes) / kBlock + 2) * kBlock;
  }
  return 0;
}

bool HasIntent(const VolumePaths& paths) {
  updater::Intent intent;
  updater::IntentFound found{};
  return !updater::ReadIntent(paths, found, intent) || found != updater::IntentFound::kNone;
}

// It is no part, so it can be made before.
void MakeClientFolder(const VolumePaths& paths, const SaveManifest& manifest) {
  for (const SavedItem& item : manifest.items) {
    file_op::Folder folder;
    if (LiveOf(paths, item) != base::FolderOf(paths.live.client)) continue;
    // Where this fails, the copy of the database cannot be made, and tells why.
    if (MakeNewFolder(LiveOf(paths, item), folder) == 0) (void)ApplyAttributes(folder.fd(), item);
  }
}

int MakeCopies(const VolumePaths& paths, SaveReader& save, std::string& error) {
  WorkingCopyMaker maker(paths);
  return save.Rewind(error) == 0 && maker.Begin(save.manifest(), error) == 0 &&
                 save.ReadThrough(&maker, error) == 0
             ? maker.Finish(save.manifest(), error)
             : -1;
}

void MakeMarker(const std::string& path, const SavedItem& item) {
  file_op::Folder above;
  std::string name;
  if (file_op::Find(file_op::At(path)) != 0 || file_op::OpenAround(path, above, name) < 0) return;
  if (item.kind != Kind::kMarker) {
    file_op::Folder folder;
    if (folder.Make(above.In(name)) == 0) (void)ApplyAttributes(folder.fd(), item);  // best effort
    return;
  }
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const base::FileDescriptor file(openat(above.fd(), name.c_str(), kFlags, S_IRUSR | S_IWUSR));
  if (file.is_open()) (void)ApplyAttributes(file.get(), item);  // as above
}

bool IsMarker(const SavedItem& item) {
  return item.kind == Kind::kMarker || item.kind == Kind::kMarkerFolder;
}

bool IsInViews(const VolumePaths& paths, const std::string& path) {
  return path.starts_with(paths.live.view_folder + "/");
}

// The view folder as a whole may be put in place, with what is in it.
void MakeMarkersInCopies(const VolumePaths& paths, const SaveManifest& manifest) {
  for (const SavedItem& item : manifest.items) {
    const std::string live = LiveOf(paths, item);
    if (!IsMarker(item) || !IsInViews(paths, live)) continue;
    MakeMarker(paths.copies.view_folder + live.substr(paths.live.view_folder.size()), item);
  }
}

// From the commit on the save is finished also by those who do not know it, but they know no markers: so
// these are made first. Before the commit, the folder of a view without its database would be in the way of
// every upgrade.
void MakeMarkers(const VolumePaths& paths, const SaveManifest& manifest) {
  for (const SavedItem& item : manifest.items) {
    const std::string live = LiveOf(paths, item);
    const bool is_view = item.kind == Kind::kFolder && IsInViews(paths, live);
    if (IsMarker(item) || is_view) MakeMarker(live, item);
  }
}

// The folder around it may be a link by now, and the way to somebody else's.
void RemoveEmpty(const std::string& path) {
  file_op::Folder above;
  std::string name;
  struct stat status {};
  if (file_op::OpenAround(path, above, name) < 0 ||
      fstatat(above.fd(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) < 0) {
    return;
  }
  if (S_ISDIR(status.st_mode)) (void)unlinkat(above.fd(), name.c_str(), AT_REMOVEDIR);
  if (S_ISREG(status.st_mode) && status.st_size == 0) (void)unlinkat(above.fd(), name.c_str(), 0);
}

}  // namespace

int CheckSpace(const VolumePaths& paths, const SaveManifest& manifest, std::string& error) {
  std::map<dev_t, Need> needs;
  if (AddUpNeeds(paths, manifest, needs, error) < 0) return -1;
  for (const auto& [device, need] : needs) {
    struct statvfs space {};
    if (statvfs(need.folder.c_str(), &space) < 0) {
      error = "cannot tell the free space of " + need.folder + ": " + base::Errno::Last().Text();
      return -1;
    }
    const std::uint64_t free = std::uint64_t{space.f_bavail} * space.f_frsize;
    if (free >= need.bytes) continue;
    error = "the restore needs " + Bytes(static_cast<long long>(need.bytes)) + " beside what is in " +
            need.folder + ", " + Bytes(static_cast<long long>(free)) + " are free";
    return -1;
  }
  return 0;
}

Restored Restore(const VolumePaths& paths, SaveReader& save, const UpgradeWatch& watch, std::string& error) {
  logger::RecordingSink log;
  const logger::ScopedSink scope(log);
  updater::FileSystems file_systems;
  if (watch.Check(error) < 0) return Restored::kNo;
  MakeClientFolder(paths, save.manifest());
  file_systems.Open(paths);
  bool is_ready = updater::RemoveAllCopies(paths) == 0 && MakeCopies(paths, save, error) == 0 &&
                  CheckStop(error) == 0 && CheckUnused(paths, error) == 0;
  // Copies may be of an upgrade by now, and in its hands.
  if (watch.Check(error) < 0) return Restored::kNo;
  if (is_ready) MakeMarkersInCopies(paths, save.manifest());
  is_ready =
      is_ready && updater::PreparePlacement(paths, file_systems, updater::PlacementKind::kRestore) == 0;
  if (!is_ready && error.empty()) error = TextOf(log);
  if (error.starts_with("cannot fold ")) {
    error +=
        "; if it is damaged, move it and what lies beside it (-wal, -shm, -journal) away and restore again";
  }
  // One that is started later finds the intent.
  if (watch.Check(error) < 0) {
    if (watch.IsRunning()) return Restored::kCommitted;
    updater::RemoveIntent(paths);
    return Restored::kNo;
  }
  // An intent that could not be taken back counts.
  if (!is_ready && HasIntent(paths)) return Restored::kCommitted;
  if (is_ready) MakeMarkers(paths, save.manifest());
  if (is_ready && updater::FinishFormerPlacement(paths) < 0) {
    error = TextOf(log);
    return Restored::kCommitted;
  }
  (void)updater::RemoveAllCopies(paths);  // the next restore or upgrade removes what stays
  return is_ready ? Restored::kYes : Restored::kNo;
}

void RestoreMarkers(const VolumePaths& paths, const SaveManifest& manifest) {
  std::map<std::string, bool> is_saved;
  for (const char* folder : kMarkerFolders) is_saved[paths.live.sync_folder + folder] = false;
  for (const char* file : kMarkers) is_saved[paths.live.sync_folder + file] = false;
  for (const SavedItem& item : manifest.items) {
    if (!IsMarker(item)) continue;
    MakeMarker(LiveOf(paths, item), item);
    is_saved[LiveOf(paths, item)] = true;
  }
  // A folder comes before the file in it, so the other way round it is empty. What holds something stays.
  for (auto marker = is_saved.rbegin(); marker != is_saved.rend(); ++marker) {
    if (!marker->second) RemoveEmpty(marker->first);
  }
}

}  // namespace ctl
