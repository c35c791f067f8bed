#include "updater/placement.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <tuple>
#include <vector>

#include "base/path.h"
#include "db-util/checkpoint.h"
#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "logger/log_sink.h"
#include "updater/working_copies.h"

namespace updater {
namespace {

using logger::CheckErrno;
using package::PackagePaths;
using package::VolumePaths;

using PartPath = std::string PackagePaths::*;

// In the order in which they are put in place.
constexpr std::array<PartPath, 4> kDatabases = {&PackagePaths::user, &PackagePaths::data, &PackagePaths::log,
                                                &PackagePaths::client};

// The parts whose live one may be missing at the start of a run.
constexpr std::array<PartPath, 5> kOtherParts = {&PackagePaths::user, &PackagePaths::log,
                                                 &PackagePaths::client, &PackagePaths::view_folder,
                                                 &PackagePaths::file_folder};

bool IsOnlyCopy(const VolumePaths& paths, PartPath part) {
  return file_op::FSExists(paths.copies.*part) && !file_op::FSExists(paths.live.*part);
}

// A file without companions is the whole database as it is, and there may be thousands of them: it is not
// opened.
bool Checkpoint(const std::string& database) {
  const auto files = db_util::DatabaseFiles(database);
  const bool has_companions = std::any_of(files.begin() + 1, files.end(), file_op::FSExists);
  return !has_companions || db_util::CheckpointDatabase(database) == 0;
}

bool ListCopies(const std::string& folder, std::vector<std::string>& names) {
  return !file_op::FSExists(folder) || CheckErrno(file_op::ListFolders(folder, names),
                                                  "cannot list working copies in %s: %s (%d)\n", folder);
}

bool CheckpointCopies(const PackagePaths& copies) {
  std::vector<std::string> views;
  std::vector<std::string> volumes;
  return std::all_of(kDatabases.begin(), kDatabases.end(),
                     [&](PartPath database) { return Checkpoint(copies.*database); }) &&
         ListCopies(copies.view_folder, views) && ListCopies(copies.file_folder, volumes) &&
         std::all_of(views.begin(), views.end(),
                     [&](const std::string& view) { return Checkpoint(copies.ViewDatabase(view)); }) &&
         std::all_of(volumes.begin(), volumes.end(),
                     [&](const std::string& volume) { return Checkpoint(copies.FileDatabase(volume)); });
}

bool CheckpointLiveDatabases(const VolumePaths& paths) {
  return std::all_of(kDatabases.begin(), kDatabases.end(), [&](PartPath database) {
    return !file_op::FSExists(paths.copies.*database) || Checkpoint(paths.live.*database);
  });
}

// Working copies are written without flushing anything. From here on they must survive a power failure: once
// they are renamed, nothing else is left. Folders of the package may be file systems of their own.
bool FlushCopies(const VolumePaths& paths) {
  std::vector<dev_t> flushed;
  for (const std::string& folder :
       {paths.volume, paths.copies.sync_folder, base::FolderOf(paths.copies.client), paths.copies.view_folder,
        paths.copies.file_folder}) {
    struct stat status {};
    if (stat(folder.c_str(), &status) < 0 && errno == ENOENT) continue;
    if (std::find(flushed.begin(), flushed.end(), status.st_dev) != flushed.end()) continue;
    if (!CheckErrno(file_op::FSSyncFileSystem(folder), "cannot flush file system of %s: %s (%d)\n", folder)) {
      return false;
    }
    flushed.push_back(status.st_dev);
  }
  return true;
}

// Durable before the first move.
bool MakePlacingMark(const VolumePaths& paths) {
  const int made = file_op::FSMakeEmptyFile(paths.placing_mark);
  return CheckErrno(made < 0 ? made : file_op::FSSyncFolder(paths.live.sync_folder),
                    "cannot make %s: %s (%d)\n", paths.placing_mark);
}

void PlaceDatabase(const VolumePaths& paths, PartPath database) {
  const std::string& copy = paths.copies.*database;
  const std::string& live = paths.live.*database;
  if (MoveIntoPlace(copy, live) < 0) return;  // logged; or there is no copy
  // The checkpoints have left no companions, so there are some only if somebody opened a database since. One
  // that cannot be removed has to stay: the database is in place by now.
  (void)db_util::RemoveCompanions(live);
  (void)db_util::RemoveCompanions(copy);
}

void FlushFolder(const std::string& folder) {
  const int flushed = file_op::FSSyncFolder(folder);
  if (flushed < 0 && errno == ENOENT) return;
  (void)CheckErrno(flushed, "cannot flush folder %s: %s (%d)\n", folder);  // everything is in place already
}

// Every folder in which something was renamed or removed.
void FlushFolders(const PackagePaths& live) {
  FlushFolder(live.sync_folder);
  FlushFolder(base::FolderOf(live.client));
  std::vector<std::string> views;
  if (file_op::ListFolders(live.view_folder, views) < 0) return;  // there is none
  for (const std::string& view : views) FlushFolder(live.ViewFolder(view));
}

}  // namespace

int PreparePlacement(const VolumePaths& paths) {
  return logger::ToResult(CheckpointCopies(paths.copies) && FlushCopies(paths) &&
                          CheckpointLiveDatabases(paths) && MakePlacingMark(paths));
}

void PlaceWorkingCopies(const VolumePaths& paths) {
  const auto& [live, copies] = std::tie(paths.live, paths.copies);
  for (const PartPath database : kDatabases) PlaceDatabase(paths, database);
  // Both log their failures; the rest goes in place all the same.
  (void)RestoreViewFolder(copies.view_folder, live.view_folder);
  (void)RestoreFileFolder(copies.file_folder, live.file_folder);
  FlushFolders(live);
  // The mark stays while a working copy is all there is of a part: it tells the next run to place that copy.
  if (std::none_of(kOtherParts.begin(), kOtherParts.end(),
                   [&](PartPath part) { return IsOnlyCopy(paths, part); })) {
    (void)unlink(paths.placing_mark.c_str());
  }
}

int SettleFormerCopies(const VolumePaths& paths) {
  const bool was_placing = file_op::FSExists(paths.placing_mark) && !file_op::FSExists(paths.copies.data);
  for (const PartPath part : kOtherParts) {
    const std::string& copy = paths.copies.*part;
    const std::string& live = paths.live.*part;
    const bool is_wanted = was_placing && IsOnlyCopy(paths, part);
    if ((is_wanted ? MoveIntoPlace(copy, live) : RemoveStaleCopy(live, copy)) < 0) return -1;
  }
  if (was_placing) FlushFolders(paths.live);
  (void)unlink(paths.placing_mark.c_str());  // there usually is none
  return 0;
}

}  // namespace updater
