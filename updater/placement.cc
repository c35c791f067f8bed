#include "updater/placement.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include "base/path.h"
#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "logger/log_sink.h"
#include "updater/framework/view_databases.h"
#include "updater/working_copies.h"

namespace updater {
namespace {

struct Part {
  const std::string& copy;
  const std::string& live;
};

// In the order in which they are put in place.
std::array<Part, 4> Databases(const RunPaths& paths) {
  return {{{paths.user_copy, paths.user_db},
           {paths.data_copy, paths.data_db},
           {paths.log_copy, paths.log_db},
           {paths.client_copy, paths.client_db}}};
}

// The parts whose live one may be missing at the start of a run.
std::array<Part, 5> OtherParts(const RunPaths& paths) {
  return {{{paths.user_copy, paths.user_db},
           {paths.log_copy, paths.log_db},
           {paths.client_copy, paths.client_db},
           {paths.view_copy, paths.view_folder},
           {paths.file_copy, paths.file_folder}}};
}

bool IsAllThereIs(const Part& part) { return file_op::FSExists(part.copy) && !file_op::FSExists(part.live); }

// A file without companions is the whole database as it is: nothing to open, be there thousands of them.
int Fold(const std::string& database) {
  const auto files = db_util::DatabaseFiles(database);
  for (std::size_t i = 1; i < files.size(); ++i) {
    if (file_op::FSExists(files[i])) return db_util::FoldDatabase(database);
  }
  return 0;
}

int ListCopies(const std::string& folder, std::vector<std::string>& names) {
  if (!file_op::FSExists(folder) || file_op::ListFolders(folder, names) == 0) return 0;
  return logger::SystemLogErrno("cannot list working copies in %s: %s (%d)\n", folder);
}

int FoldCopies(const RunPaths& paths) {
  for (const Part& database : Databases(paths)) {
    if (Fold(database.copy) < 0) return -1;
  }
  std::vector<std::string> views;
  std::vector<std::string> volumes;
  if (ListCopies(paths.view_copy, views) < 0 || ListCopies(paths.file_copy, volumes) < 0) return -1;
  const FolderDatabases copies(paths.view_copy, paths.file_copy);
  for (const std::string& view : views) {
    if (Fold(copies.ViewDatabase(view)) < 0) return -1;
  }
  for (const std::string& volume : volumes) {
    if (Fold(copies.FileDatabase(volume)) < 0) return -1;
  }
  return 0;
}

int FoldLiveDatabases(const RunPaths& paths) {
  for (const Part& database : Databases(paths)) {
    if (file_op::FSExists(database.copy) && Fold(database.live) < 0) return -1;
  }
  return 0;
}

// Working copies are written without flushing anything. From here on they must survive a power failure: once
// they are renamed, nothing else is left. Folders of the package may be file systems of their own.
int FlushCopies(const RunPaths& paths) {
  std::vector<dev_t> flushed;
  for (const std::string& folder : {paths.volume, paths.sync_folder, base::FolderOf(paths.client_copy),
                                    paths.view_copy, paths.file_copy}) {
    struct stat status {};
    if (stat(folder.c_str(), &status) < 0 && errno == ENOENT) continue;
    if (std::find(flushed.begin(), flushed.end(), status.st_dev) != flushed.end()) continue;
    if (file_op::FSSyncFileSystem(folder) < 0) {
      return logger::SystemLogErrno("cannot flush file system of %s: %s (%d)\n", folder);
    }
    flushed.push_back(status.st_dev);
  }
  return 0;
}

void PlaceDatabase(const Part& database) {
  if (MoveIntoPlace(database.copy, database.live) < 0) return;  // logged; or there is no copy
  // Both were folded, so there are none unless somebody opened one in between. The files are in place by now:
  // a companion that stays is as bad as none was before, and nothing is left to fall back to.
  (void)db_util::RemoveCompanions(database.live);
  (void)db_util::RemoveCompanions(database.copy);
}

// Durable before the first move.
int MakePlacingMark(const RunPaths& paths) {
  if (file_op::FSMakeEmptyFile(paths.placing_mark) == 0 && file_op::FSSyncFolder(paths.sync_folder) == 0)
    return 0;
  return logger::SystemLogErrno("cannot make %s: %s (%d)\n", paths.placing_mark);
}

void FlushFolder(const std::string& folder) {
  if (file_op::FSSyncFolder(folder) == 0 || errno == ENOENT) return;
  (void)logger::SystemLogErrno("cannot flush folder %s: %s (%d)\n",
                               folder);  // everything is in place already
}

// Every folder in which something was renamed or removed.
void FlushFolders(const RunPaths& paths) {
  FlushFolder(paths.sync_folder);
  FlushFolder(base::FolderOf(paths.client_db));
  std::vector<std::string> views;
  if (file_op::ListFolders(paths.view_folder, views) < 0) return;  // there is none
  const FolderDatabases live(paths.view_folder, paths.file_folder);
  for (const std::string& view : views) FlushFolder(live.ViewFolder(view));
}

}  // namespace

int PreparePlacement(const RunPaths& paths) {
  return FoldCopies(paths) < 0 || FlushCopies(paths) < 0 || FoldLiveDatabases(paths) < 0 ||
                 MakePlacingMark(paths) < 0
             ? -1
             : 0;
}

void PlaceWorkingCopies(const RunPaths& paths) {
  for (const Part& database : Databases(paths)) PlaceDatabase(database);
  (void)RestoreViewFolder(paths.view_copy, paths.view_folder);  // logged; the rest goes in place all the same
  (void)RestoreFileFolder(paths.file_copy, paths.file_folder);  // the same
  FlushFolders(paths);
  const auto parts = OtherParts(paths);
  // Otherwise the next run has to finish it.
  if (std::none_of(parts.begin(), parts.end(), IsAllThereIs)) (void)unlink(paths.placing_mark.c_str());
}

int SettleFormerCopies(const RunPaths& paths) {
  const bool was_placing = file_op::FSExists(paths.placing_mark) && !file_op::FSExists(paths.data_copy);
  for (const Part& part : OtherParts(paths)) {
    const bool is_wanted = was_placing && IsAllThereIs(part);
    if ((is_wanted ? MoveIntoPlace(part.copy, part.live) : RemoveStaleCopy(part.live, part.copy)) < 0)
      return -1;
  }
  if (was_placing) FlushFolders(paths);
  (void)unlink(paths.placing_mark.c_str());  // there usually is none
  return 0;
}

}  // namespace updater
