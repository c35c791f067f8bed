#include "updater/placement_items.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>
#include <vector>

#include "base/fnv.h"
#include "base/path.h"
#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "file-op/tree_walk.h"
#include "logger/log_sink.h"

namespace updater {
namespace {

using file_op::Entry;
using file_op::FolderCursor;
using package::PackagePaths;
using package::VolumePaths;

// The size of what is neither a file nor a folder.
constexpr std::int64_t kStrange = -1;

FileIdentity IdentityOf(const struct stat& status) {
  const auto seconds =
      static_cast<std::uint64_t>(status.st_mtim.tv_sec);  // any value, and it may wrap around
  const auto nanoseconds = static_cast<std::uint64_t>(status.st_mtim.tv_nsec);
  const bool is_strange = !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
  return {.inode = status.st_ino,
          .size = is_strange ? kStrange : status.st_size,
          .modified_ns = static_cast<std::int64_t>(seconds * 1'000'000'000 + nanoseconds)};
}

bool IsCompanion(std::string_view name) {
  return std::any_of(db_util::kCompanionSuffixes.begin(), db_util::kCompanionSuffixes.end(),
                     [&](std::string_view suffix) { return name.ends_with(suffix); });
}

// The order of the files does not count. Neither do empty companions and the index of a log: whoever only
// reads a database makes and changes them.
class TreeDigest : public file_op::TraverseHandler {
 public:
  int OnEntry(const FolderCursor& folder, const Entry& entry) override {
    if (entry.type == Entry::Type::kFolder || entry.name.ends_with("-shm")) return 0;
    struct stat status {};
    if (fstatat(folder.fd(), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) < 0) return -1;
    if (status.st_size == 0 && IsCompanion(entry.name)) return 0;
    const auto [inode, size, modified_ns] = IdentityOf(status);
    sum_ +=
        base::Fnv1a(std::to_string(inode) + ":" + std::to_string(size) + ":" + std::to_string(modified_ns));
    ++count_;
    return 0;
  }
  [[nodiscard]] FileIdentity Identity(std::uint64_t inode) const {
    return {.inode = inode, .size = count_, .modified_ns = static_cast<std::int64_t>(sum_)};
  }

 private:
  std::int64_t count_ = 0;
  std::uint64_t sum_ = 0;
};

base::Errno IdentifyTree(const std::string& path, FileIdentity& identity) {
  FolderCursor cursor;
  TreeDigest digest;
  if (cursor.OpenTop(file_op::At(path)) < 0 || WalkTree(cursor, digest) < 0) return base::Errno::Last();
  identity = digest.Identity(identity.inode);
  return {};
}

// Nothing at the path is success.
bool Identify(const std::string& path, int flags, FileIdentity& identity) {
  identity = {};
  struct stat status {};
  base::Errno error;
  if (fstatat(AT_FDCWD, path.c_str(), &status, flags) < 0) {
    if (errno != ENOENT && errno != ENOTDIR) error = base::Errno::Last();
  } else {
    identity = IdentityOf(status);
    if (S_ISDIR(status.st_mode)) error = IdentifyTree(path, identity);
  }
  return logger::CheckOrLog(error, "cannot examine %s: %s (%d)\n", path, error.Text(), error.number());
}

// A live database may be reached through a link, a copy may not.
bool IdentifyBoth(const ItemPaths& paths, FileIdentity& copy, FileIdentity& live) {
  return Identify(paths.copy, AT_SYMLINK_NOFOLLOW, copy) && Identify(paths.live, 0, live);
}

// What was committed to a log is in no file that the identity tells of. The live databases had none when the
// intent was written. SQLite keeps the log of a linked database beside the file itself. Returns false as
// Identify does.
bool FindLog(const std::string& database, bool& has_log) {
  std::error_code failure;
  const std::string log = std::filesystem::canonical(database, failure).string() + "-wal";
  base::Errno error(failure.value());
  FileIdentity identity;
  if (!logger::CheckOrLog(error, "cannot examine %s: %s (%d)\n", database, error.Text(), error.number()) ||
      !Identify(log, 0, identity)) {
    return false;
  }
  has_log = identity.size > 0;
  return true;
}

// The views that the moves will do.
bool ListViews(const VolumePaths& paths, PlacementKind kind, Intent& intent) {
  std::vector<std::string> views;
  std::vector<std::string> copied;
  const bool is_restore = kind == PlacementKind::kRestore;
  const int has_copy = file_op::Find(file_op::At(paths.copies.view_folder));
  const int listed = file_op::ListFolders(paths.live.view_folder, views);
  const bool is_new = listed < 0 && errno == ENOENT;
  const bool is_asked = is_restore && has_copy == 1;
  if (!logger::CheckErrno(is_new ? has_copy : std::min(has_copy, listed), "cannot examine %s: %s (%d)\n",
                          paths.live.view_folder) ||
      !logger::CheckErrno(is_asked ? file_op::ListFolders(paths.copies.view_folder, copied) : 0,
                          "cannot examine %s: %s (%d)\n", paths.copies.view_folder)) {
    return false;
  }
  // The whole folder: it comes, or goes.
  const bool is_whole = is_new ? has_copy == 1 : is_restore && has_copy == 0;
  if (is_whole) intent.push_back({.part = std::string(kViewsPart)});
  if (is_new || has_copy == 0) return true;
  std::set<std::string> added(copied.begin(), copied.end());
  for (const std::string& view : views) {
    const bool has_folder = added.erase(view) > 0;
    intent.push_back({.part = ViewPart(view), .goes = is_restore && !has_folder});
  }
  for (const std::string& view : added) intent.push_back({.part = ViewPart(view)});
  return true;
}

}  // namespace

ItemPaths PathsOf(const VolumePaths& paths, const IntentItem& item) {
  const auto both = [&paths](PartPath part) { return ItemPaths{paths.copies.*part, paths.live.*part}; };
  for (std::size_t i = 0; i < kDatabases.size(); ++i) {
    if (item.part == kDatabaseParts.at(i)) return both(kDatabases.at(i));
  }
  if (item.part == kViewsPart) return both(&PackagePaths::view_folder);
  if (item.part == kFilesPart) return both(&PackagePaths::file_folder);
  const std::string view = base::NameOf(item.part);
  if (item.goes) return {paths.copies.ViewFolder(view), paths.live.ViewFolder(view)};
  return {paths.copies.ViewDatabase(view), paths.live.ViewDatabase(view)};
}

bool ListItems(const VolumePaths& paths, PlacementKind kind, Intent& intent) {
  intent.clear();
  for (const std::string_view part : kDatabaseParts) intent.push_back({.part = std::string(part)});
  if (!ListViews(paths, kind, intent)) return false;
  intent.push_back({.part = std::string(kFilesPart)});
  return std::all_of(intent.begin(), intent.end(), [&](IntentItem& item) {
    const ItemPaths where = PathsOf(paths, item);
    if (!IdentifyBoth(where, item.copy, item.live)) return false;
    item.goes |=
        kind == PlacementKind::kRestore && !item.is_view() && !item.copy.exists() && item.live.exists();
    const base::Errno error(item.copy.size == kStrange ? ELOOP : 0);
    return logger::CheckOrLog(error, "cannot examine %s: %s (%d)\n", where.copy, error.Text(),
                              error.number());
  });
}

bool GetItemState(const VolumePaths& paths, const IntentItem& item, ItemState& state) {
  const ItemPaths where = PathsOf(paths, item);
  FileIdentity copy;
  FileIdentity live;
  if (!IdentifyBoth(where, copy, live)) return false;
  bool has_log = false;
  if (live.exists() && !FindLog(where.live, has_log)) return false;
  // What is empty holds nothing newer: somebody opened what was not there yet, or made its folder.
  const bool is_same = live == item.live || live.size == 0;
  const bool may_replace = !live.exists() || (is_same && !has_log);
  // A live database behind a link may have the same number on another file system, so the copy must be gone.
  const bool is_moved = live.inode == item.copy.inode && copy.inode != item.copy.inode;
  // A view that is gone was moved, and its user removed since.
  const bool is_gone = item.is_view() && !live.exists() && !copy.exists();
  const bool is_placed = item.copy.exists() ? is_moved : !item.is_view();
  const bool is_done = item.goes ? !live.exists() : is_gone || is_placed;
  const bool can_be_made = may_replace && (item.goes || copy == item.copy);
  state = is_done ? ItemState::kDone : can_be_made ? ItemState::kPending : ItemState::kChanged;
  return true;
}

bool AcceptLive(const VolumePaths& paths, IntentItem& item, bool& is_changed) {
  FileIdentity copy;
  FileIdentity live;
  if (!IdentifyBoth(PathsOf(paths, item), copy, live)) return false;
  is_changed = item.copy.exists() && copy == item.copy && !(live == item.live);
  if (is_changed) item.live = live;
  return true;
}

}  // namespace updater
