#include "updater/placement_targets.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <utility>

#include "base/errno.h"
#include "base/path.h"
#include "base/retry.h"
#include "file-op/file_op.h"
#include "file-op/tree_walk.h"
#include "logger/log_sink.h"
#include "updater/placement_items.h"

namespace updater {
namespace {

using file_op::Entry;
using file_op::Folder;
using file_op::FolderCursor;

constexpr const char* kProbe = ".upgrade-probe";

class MovableTree : public file_op::TraverseHandler {
 public:
  int OnEntry(const FolderCursor& folder, const Entry& entry) override {
    return CheckMovable(folder.here().In(entry.name));
  }
};

// What keeps the file or folder itself from being replaced and then removed.
base::Errno CheckTarget(const std::string& target, bool is_folder) {
  FolderCursor cursor;
  MovableTree handler;
  int result = CheckMovable(file_op::At(target));
  if (result == 0 && is_folder) result = cursor.OpenTop(file_op::At(target));
  if (result == 0 && is_folder) result = WalkTree(cursor, handler);
  return base::Errno::Of(result);
}

// Nothing goes away from such a folder again, not even a probe.
bool IsAppendOnly(const Folder& folder) {
  struct statx status {};
  return statx(folder.fd(), "", AT_EMPTY_PATH, STATX_TYPE, &status) == 0 &&
         (status.stx_attributes & STATX_ATTR_APPEND) != 0;
}

// Renames a new file from one folder to the other.
base::Errno TryRename(const std::string& from, const std::string& to, bool may_be_link) {
  Folder source;
  Folder target;
  if (source.OpenReal(from) < 0 || (may_be_link ? target.OpenReal(to) : target.Open(file_op::At(to))) < 0) {
    return base::Errno::Last();
  }
  if (IsAppendOnly(source) || IsAppendOnly(target)) return base::Errno(EPERM);
  // A killed run may have left one. Whatever else has the name must not be in the way for ever.
  if (file_op::RemoveTree(source.In(kProbe)) < 0 || file_op::RemoveTree(target.In(kProbe)) < 0) {
    return base::Errno::Last();
  }
  const base::FileDescriptor made(base::RetryInterrupted([&] {
    return openat(source.fd(), kProbe, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                  S_IRUSR | S_IWUSR);
  }));
  base::Errno error;
  if (!made.is_open() || renameat(source.fd(), kProbe, target.fd(), kProbe) < 0) error = base::Errno::Last();
  if (unlinkat(target.fd(), kProbe, 0) < 0 && error.ok()) error = base::Errno::Last();
  (void)unlinkat(source.fd(), kProbe, 0);  // is there only if the error is known already
  return error;
}

}  // namespace

bool CanReplaceTargets(const package::VolumePaths& paths, const Intent& intent) {
  std::set<std::pair<std::string, std::string>> tried;
  for (const IntentItem& item : intent) {
    const bool is_removal = item.goes || (item.is_view() && !item.copy.exists());
    if (!item.copy.exists() && !is_removal) continue;  // this part stays as it is
    const auto [copy, live] = PathsOf(paths, item);
    base::Errno error = CheckTarget(live, item.is_folder() && item.live.exists());
    const bool is_file = item.copy.exists() && !item.is_folder() && !item.is_view();
    struct stat status {};
    if (error.ok() && is_file && lstat(live.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
      error = base::Errno(EISDIR);
    }
    // A folder that goes is moved to where its working copy would be.
    const bool stays_there = is_removal && !item.is_folder();
    std::string around = base::FolderOf(live);
    const bool is_in_view = item.is_view() && !item.goes;
    // The folder of a view that is new is made by the move.
    if (is_in_view && file_op::Find(file_op::At(around)) == 0) around = base::FolderOf(around);
    const bool may_be_link = !is_in_view || around == paths.live.view_folder;
    const auto folders = std::pair(stays_there ? around : base::FolderOf(copy), around);
    if (error.ok() && tried.insert(folders).second) {
      error = TryRename(folders.first, folders.second, may_be_link);
    }
    if (!logger::CheckOrLog(error, "cannot replace %s: %s (%d)\n", live, error.Text(), error.number())) {
      return false;
    }
  }
  return true;
}

}  // namespace updater
