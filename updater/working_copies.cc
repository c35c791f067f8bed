#include "updater/working_copies.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "base/errno.h"
#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "logger/log_sink.h"
#include "package/layout.h"
#include "updater/framework/run_observer.h"

namespace updater {
namespace {

using file_op::FilePlace;
using file_op::Folder;
using logger::CheckErrno;
using logger::CheckOrLog;

using DatabasePlaces = std::array<FilePlace, db_util::kCompanionSuffixes.size() + 1>;

// The database with its companions.
DatabasePlaces PlacesOf(const FilePlace& database) {
  const auto names = db_util::DatabaseFiles(database.name);
  const auto paths = db_util::DatabaseFiles(database.path);
  DatabasePlaces places;
  for (std::size_t i = 0; i < places.size(); ++i) places[i] = {database.at, names[i], paths[i]};
  return places;
}

bool IsLink(const FilePlace& place) {
  struct stat status {};
  return fstatat(place.at, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

// SQLite keeps the companions of a database that is reached through a link beside the file itself.
FilePlace ResolveLink(const FilePlace& place) {
  if (!IsLink(place)) return place;
  const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(place.path.c_str(), nullptr),
                                                             &std::free);
  return resolved ? file_op::At(resolved.get()) : place;
}

int RemoveDatabase(const FilePlace& database) {
  for (const FilePlace& file : PlacesOf(database)) {
    if (file_op::Exists(file) && file_op::RemoveTree(file) < 0) return -1;
  }
  return 0;
}

int CopyDatabase(const FilePlace& source, const FilePlace& target) {
  const DatabasePlaces sources = PlacesOf(ResolveLink(source));
  const DatabasePlaces targets = PlacesOf(target);
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const int found = file_op::Find(sources[i]);
    if (found < 0 || (found == 1 && file_op::CopyKeepingOwner(sources[i], targets[i]) < 0)) return -1;
  }
  return 0;
}

// Moves the database over the one at `target`, and its companions where it has any. Of the old ones none is
// left. Nothing is removed before the move that replaces it.
int MoveDatabase(const FilePlace& source, const FilePlace& target) {
  const DatabasePlaces sources = PlacesOf(source);
  const DatabasePlaces targets = PlacesOf(target);
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const int found = file_op::Find(sources[i]);
    if (found < 0) return -1;
    if ((found == 1 ? file_op::Rename(sources[i], targets[i]) : file_op::RemoveTree(targets[i])) < 0)
      return -1;
  }
  return 0;
}

void LogMoveFailure(const std::string& source, const std::string& target) {
  const base::Errno error = base::Errno::Last();
  logger::SystemLog("cannot move %s to %s: %s (%d)\n", source, target, error.Text(), error.number());
}

bool RemoveOldCopy(const std::string& copy) {
  return CheckErrno(file_op::FSRemoveTree(copy, 0), "Cannot remove old backup at %s: %s (%d)", copy);
}

// The folders behind links are somebody else's; the databases in them stay as they are.
void WarnOfLinkedFolders(const Folder& folder) {
  std::vector<std::string> names;
  if (file_op::ListLinkedFolders(folder, names) < 0) return;  // the folders were listed, which is what counts
  for (const std::string& name : names) {
    logger::SystemLog("warning: %s is a link to a folder and is skipped, its database is not upgraded",
                      folder.In(name).path);
  }
}

// The last step of a copied folder. The copy may become the live folder, so it must belong to whom that does;
// but until everything is in it, nobody else may enter it.
bool GiveOwnerAndMode(const Folder& live, const Folder& copy) {
  return CheckErrno(copy.TakeOwnerAndMode(live), "Cannot keep owner and mode of %s: %s (%d)", live.path());
}

std::string ViewDatabaseIn(const Folder& folder, const std::string& view) {
  return folder.In(view).path + "/" + package::kViewDatabase;
}

bool OpenViews(const std::string& view_folder, Folder& folder, std::vector<std::string>& views) {
  return folder.OpenReal(view_folder) == 0 && file_op::ListFolders(folder, views) == 0;
}

bool BackupView(const Folder& live, const Folder& copy, const std::string& view) {
  Folder from;
  Folder to;
  if (!CheckOrLog(to.Make(copy.In(view)), "Cannot create backup view folder at %s", copy.In(view).path)) {
    return false;
  }
  const bool copied = from.Open(live.In(view)) == 0 &&
                      CopyDatabase(from.In(package::kViewDatabase), to.In(package::kViewDatabase)) == 0;
  return CheckOrLog(copied, "Cannot backup view from %s to %s", ViewDatabaseIn(live, view),
                    ViewDatabaseIn(copy, view)) &&
         GiveOwnerAndMode(from, to);
}

// Makes a folder again that somebody has removed since, which errno tells. Returns 0, or -1 with errno set.
int MakeAgain(const FilePlace& place, const Folder& like, Folder& folder) {
  return errno == ENOENT && folder.Make(place) == 0 ? folder.TakeOwnerAndMode(like) : -1;
}

// Returns 0, or -1 with errno set.
int RestoreViewIn(const Folder& copy, const Folder& live, const std::string& view) {
  Folder from;
  Folder to;
  const bool has_folder = from.Open(copy.In(view)) == 0;
  if (!has_folder && errno != ENOENT) return -1;
  if (to.Open(live.In(view)) < 0 && (!has_folder || MakeAgain(live.In(view), from, to) < 0)) return -1;
  const FilePlace target = to.In(package::kViewDatabase);
  const int found = has_folder ? file_op::Find(from.In(package::kViewDatabase)) : 0;
  if (found < 0) return -1;
  // A view without a working copy only loses its database; keep it so.
  return found == 1 ? MoveDatabase(from.In(package::kViewDatabase), target) : RemoveDatabase(target);
}

// Puts the copy in the place of the folder, which is never removed first: a run that is killed in between
// must leave one of them. Returns 0, or -1 with errno set.
int ReplaceFolder(const std::string& copy, const std::string& live, const std::string& replaced) {
  if (renameat2(AT_FDCWD, copy.c_str(), AT_FDCWD, live.c_str(), RENAME_EXCHANGE) == 0) {
    (void)file_op::FSRemoveTree(copy, 0);  // the former live folder
    return 0;
  }
  // Not every file system can exchange two folders.
  if (errno != EINVAL && errno != ENOSYS) return -1;
  if (file_op::FSRemoveTree(replaced, 0) < 0 || std::rename(live.c_str(), replaced.c_str()) < 0) return -1;
  if (std::rename(copy.c_str(), live.c_str()) < 0) {
    const int error = errno;
    (void)std::rename(replaced.c_str(), live.c_str());  // if not even that works, the next run moves the copy
    errno = error;
    return -1;
  }
  return 0;
}

// The updaters would reach the live database through a link that was copied as one.
int ReplaceCopiedLinks(const Folder& live, const Folder& copy) {
  std::vector<std::string> volumes;
  if (file_op::ListFolders(copy, volumes) < 0) return -1;
  for (const std::string& volume : volumes) {
    Folder from;
    Folder to;
    if (to.Open(copy.In(volume)) < 0) return -1;
    const FilePlace target = to.In(package::kFileDatabase);
    if (!IsLink(target)) continue;
    if (from.Open(live.In(volume)) < 0 || RemoveDatabase(target) < 0 ||
        CopyDatabase(from.In(package::kFileDatabase), target) < 0) {
      return -1;
    }
  }
  return 0;
}

}  // namespace

int MoveIntoPlace(const std::string& copy, const std::string& live) {
  const int result = file_op::Rename(file_op::At(copy), file_op::At(live));
  if (result >= 0) return 0;
  if (result != file_op::kMoveNoSource || errno != ENOENT) LogMoveFailure(copy, live);
  return -1;
}

int RemoveDatabaseFiles(const std::string& database) { return RemoveDatabase(file_op::At(database)); }

int RemoveStaleCopy(const std::string& live, const std::string& copy) {
  if (file_op::FSExists(live)) return 0;
  // For a folder too: nothing but a leftover has the name of its companions.
  for (const std::string& file : db_util::DatabaseFiles(copy)) {
    if (!RemoveOldCopy(file)) return -1;
  }
  return 0;
}

int BackupDatabaseFile(const std::string& source, const std::string& target) {
  if (RemoveDatabaseFiles(target) < 0) return -1;
  return CopyDatabase(file_op::At(source), file_op::At(target));
}

int BackupViewFolder(const std::string& view_folder, const std::string& view_copy) {
  std::vector<std::string> views;
  Folder copy;
  Folder live;
  if (!RemoveOldCopy(view_copy) ||
      !CheckOrLog(copy.Make(view_copy), "Cannot create backup folder for %s", view_copy) ||
      !CheckOrLog(OpenViews(view_folder, live, views), "Cannot get views to backup view folder at %s\n",
                  view_folder)) {
    return -1;
  }
  WarnOfLinkedFolders(live);
  PartCounter counter("view", views.size());
  for (const std::string& view : views) {
    if (!BackupView(live, copy, view)) return -1;
    counter.Next();
  }
  return logger::ToResult(GiveOwnerAndMode(live, copy));
}

int RestoreViewFolder(const std::string& view_copy, const std::string& view_folder) {
  if (!file_op::FSExists(view_folder)) {
    return logger::ToResult(CheckOrLog(MoveIntoPlace(view_copy, view_folder),
                                       "Failed to rename from %s to %s\n", view_copy, view_folder));
  }
  std::vector<std::string> views;
  Folder copy;
  Folder live;
  // Without a working copy, going on would only remove the live databases.
  if (!CheckOrLog(copy.Open(file_op::At(view_copy)), "Cannot restore %s to %s", view_copy, view_folder) ||
      !CheckOrLog(OpenViews(view_folder, live, views), "Failed to get views to restore in %s\n",
                  view_folder)) {
    return -1;
  }
  PartCounter counter("view", views.size());
  for (const std::string& view : views) {
    counter.Next();
    if (RestoreViewIn(copy, live, view) == 0) continue;
    const std::string source = ViewDatabaseIn(copy, view);
    const std::string target = ViewDatabaseIn(live, view);
    LogMoveFailure(source, target);
    logger::SystemLog("Cannot restore %s to %s", source, target);
    return -1;
  }
  (void)file_op::FSRemoveTree(view_copy, 0);  // every database is in place; the next run removes what stays
  return 0;
}

int BackupFileFolder(const std::string& file_folder, const std::string& file_copy) {
  const auto finish = [&](const Folder& copy) {
    Folder live;
    if (live.Open(file_op::At(file_folder)) < 0) return -1;
    WarnOfLinkedFolders(live);
    return ReplaceCopiedLinks(live, copy);
  };
  return logger::ToResult(RemoveOldCopy(file_copy) &&
                          file_op::FSCopyTree(file_folder, file_copy, finish) == 0);
}

int RestoreView(const std::string& view_copy, const std::string& view_folder, const std::string& view) {
  Folder copy;
  Folder live;
  if (copy.Open(file_op::At(view_copy)) == 0 &&
      (live.OpenReal(view_folder) == 0 || MakeAgain(file_op::At(view_folder), copy, live) == 0) &&
      RestoreViewIn(copy, live, view) == 0) {
    return 0;
  }
  LogMoveFailure(view_copy + "/" + view, view_folder + "/" + view);
  return -1;
}

int RestoreFileFolder(const std::string& file_copy, const std::string& file_folder) {
  const std::string replaced = file_copy + ".old";
  const bool has_live = file_op::FSExists(file_folder);
  const bool has_copy = file_op::FSExists(file_copy);
  bool placed = false;
  if (!has_live) placed = MoveIntoPlace(file_copy, file_folder) == 0;
  if (has_live && has_copy) {
    placed = ReplaceFolder(file_copy, file_folder, replaced) == 0;
    if (!placed) LogMoveFailure(file_copy, file_folder);
  }
  // A run that was killed here before may have left the former live folder.
  if (placed) (void)file_op::FSRemoveTree(replaced, 0);  // the next run tries again
  return logger::ToResult(CheckOrLog(placed, "Cannot restore %s to %s", file_copy, file_folder));
}

}  // namespace updater
