#include "updater/working_copies.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "logger/log_sink.h"
#include "updater/framework/view_databases.h"

namespace updater {
namespace {

using Paths = logger::PrintfFormat<std::string, std::string>;

int LogPaths(const Paths& format, const std::string& from, const std::string& to) {
  logger::SystemLog<std::string, std::string>(format, from, to);
  return -1;
}

int LogSystemFailure(const logger::PrintfFormat<std::string, char*, int>& format, const std::string& path) {
  const int error = errno;
  logger::SystemLog<std::string, char*, int>(format, path, std::strerror(error), error);
  return -1;
}

bool IsLink(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

// SQLite keeps the companions of a database that is reached through a link beside the file itself.
std::string ResolveLink(const std::string& path) {
  if (!IsLink(path)) return path;
  const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
  return resolved ? resolved.get() : path;
}

int RemoveOldCopy(const std::string& copy) {
  if (file_op::FSRemoveTree(copy, 0) == 0) return 0;
  return LogSystemFailure("Cannot remove old backup at %s: %s (%d)", copy);
}

// A working copy's folder becomes the live one where there is none, so it belongs to whom the live one does.
int CopyFolderOwner(const std::string& folder, const std::string& copy) {
  if (file_op::CopyOwnerAndMode(folder, copy) == 0) return 0;
  return LogSystemFailure("Cannot keep owner and mode of %s: %s (%d)", folder);
}

int BackupView(const FolderDatabases& live, const FolderDatabases& copy, const std::string& view) {
  const std::string folder = copy.ViewFolder(view);
  if (file_op::FSMKDir(folder, true) < 0) {
    logger::SystemLog("Cannot create backup view folder at %s", folder);
    return -1;
  }
  if (BackupDatabaseFile(live.ViewDatabase(view), copy.ViewDatabase(view)) < 0) {
    return LogPaths("Cannot backup view from %s to %s", live.ViewDatabase(view), copy.ViewDatabase(view));
  }
  return CopyFolderOwner(live.ViewFolder(view), folder);
}

// Moves the database with its companions, each where it exists.
int MoveDatabaseFiles(const std::string& source, const std::string& target) {
  const auto sources = db_util::DatabaseFiles(source);
  const auto targets = db_util::DatabaseFiles(target);
  for (std::size_t i = 0; i < sources.size(); ++i) {
    if (file_op::FSExists(sources[i]) && file_op::FSMove(sources[i], targets[i], true) < 0) return -1;
  }
  return 0;
}

// The updaters would reach the live database through a link that was copied as one.
int ReplaceCopiedLinks(const FolderDatabases& live, const FolderDatabases& copy) {
  std::vector<std::string> volumes;
  if (file_op::ListFolders(copy.file_folder(), volumes) < 0) return -1;
  for (const std::string& volume : volumes) {
    if (!IsLink(copy.FileDatabase(volume))) continue;
    if (BackupDatabaseFile(live.FileDatabase(volume), copy.FileDatabase(volume)) < 0) return -1;
  }
  return 0;
}

}  // namespace

int RemoveDatabaseFiles(const std::string& database) {
  for (const std::string& file : db_util::DatabaseFiles(database)) {
    if (file_op::FSExists(file) && file_op::FSRemoveTree(file, 0) < 0) return -1;
  }
  return 0;
}

int BackupDatabaseFile(const std::string& source, const std::string& target) {
  if (RemoveDatabaseFiles(target) < 0) return -1;
  const auto sources = db_util::DatabaseFiles(ResolveLink(source));
  const auto targets = db_util::DatabaseFiles(target);
  for (std::size_t i = 0; i < sources.size(); ++i) {
    if (file_op::FSExists(sources[i]) && file_op::FSCopyKeepingOwner(sources[i], targets[i]) < 0) return -1;
  }
  return 0;
}

int BackupViewFolder(const std::string& view_folder, const std::string& view_copy) {
  if (RemoveOldCopy(view_copy) < 0) return -1;
  if (file_op::FSMKDir(view_copy, true) < 0) {
    logger::SystemLog("Cannot create backup folder for %s", view_copy);
    return -1;
  }
  std::vector<std::string> views;
  if (file_op::ListFolders(view_folder, views) < 0) {
    logger::SystemLog("Cannot get views to backup view folder at %s\n", view_folder);
    return -1;
  }
  const FolderDatabases live(view_folder, {});
  const FolderDatabases copy(view_copy, {});
  for (const std::string& view : views) {
    if (BackupView(live, copy, view) < 0) return -1;
  }
  return CopyFolderOwner(view_folder, view_copy);
}

int RestoreViewFolder(const std::string& view_copy, const std::string& view_folder) {
  if (!file_op::FSExists(view_folder)) {
    if (file_op::FSMove(view_copy, view_folder, true) == 0) return 0;
    return LogPaths("Failed to rename from %s to %s\n", view_copy, view_folder);
  }
  // Without a working copy, going on would only remove the live databases.
  if (!file_op::FSExists(view_copy)) return LogPaths("Cannot restore %s to %s", view_copy, view_folder);
  std::vector<std::string> views;
  if (file_op::ListFolders(view_folder, views) < 0) {
    logger::SystemLog("Failed to get views to restore in %s\n", view_folder);
    return -1;
  }
  const FolderDatabases live(view_folder, {});
  const FolderDatabases copy(view_copy, {});
  for (const std::string& view : views) {
    const std::string source = copy.ViewDatabase(view);
    const std::string target = live.ViewDatabase(view);
    if (RemoveDatabaseFiles(target) < 0 || MoveDatabaseFiles(source, target) < 0) {
      return LogPaths("Cannot restore %s to %s", source, target);
    }
  }
  (void)file_op::FSRemoveTree(view_copy, 0);  // every database is in place; the next run removes what stays
  return 0;
}

int BackupFileFolder(const std::string& file_folder, const std::string& file_copy) {
  if (RemoveOldCopy(file_copy) < 0 || file_op::FSCopyTree(file_folder, file_copy) < 0) return -1;
  return ReplaceCopiedLinks(FolderDatabases({}, file_folder), FolderDatabases({}, file_copy));
}

int RestoreFileFolder(const std::string& file_copy, const std::string& file_folder) {
  const bool has_copy = file_op::FSExists(file_copy);
  // What cannot be removed keeps the move from succeeding.
  if (has_copy) (void)file_op::FSRemoveTree(file_folder, 0);
  if (has_copy && file_op::FSMove(file_copy, file_folder, true) == 0) return 0;
  return LogPaths("Cannot restore %s to %s", file_copy, file_folder);
}

}  // namespace updater
