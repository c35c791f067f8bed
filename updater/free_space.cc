#include "updater/free_space.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/errno.h"
#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "file-op/tree_walk.h"
#include "logger/log_sink.h"

namespace updater {
namespace {

using file_op::Entry;
using file_op::FolderCursor;

// Whatever cannot be examined counts as empty: the attempt to copy it will tell.
class FolderSizeCounter : public file_op::TraverseHandler {
 public:
  int OnEntry(const FolderCursor& folder, const Entry& entry) override {
    if (entry.type == Entry::Type::kFile) Add(SizeOf(folder.here().In(entry.name)));
    return 0;
  }

  void AddFolder(const std::string& path) {
    FolderCursor cursor;
    if (cursor.OpenTop(file_op::At(path)) == 0) (void)WalkTree(cursor, *this);
  }
  void AddDatabase(const std::string& path) {
    unsigned long long size = 0;
    for (const std::string& file : db_util::DatabaseFiles(path)) size += SizeOf(file_op::At(file));
    Add(size);
  }

  // What whole runs on sample volumes of every version took at most, and a little more: the databases grow by
  // up to a half, and the largest is rebuilt beside itself with temporary files of its own size.
  [[nodiscard]] unsigned long long Needed() const { return (6 * all_ + 9 * largest_) / 4; }
  [[nodiscard]] unsigned long long all() const { return all_; }

 private:
  static unsigned long long SizeOf(const file_op::FilePlace& place) {
    struct stat status {};
    const bool known = fstatat(place.at, place.name.c_str(), &status, 0) == 0;
    return known && S_ISREG(status.st_mode) ? static_cast<unsigned long long>(status.st_size) : 0;
  }
  void Add(unsigned long long size) {
    all_ += size;
    largest_ = std::max(largest_, size);
  }

  unsigned long long all_ = 0;
  unsigned long long largest_ = 0;
};

}  // namespace

std::optional<Space> MeasureSpace(const package::VolumePaths& paths, const std::string& place) {
  const package::PackagePaths& live = paths.live;
  FolderSizeCounter counter;
  for (const std::string& database : {live.user, live.data, live.log, live.client})
    counter.AddDatabase(database);
  std::vector<std::string> views;
  (void)file_op::ListFolders(live.view_folder, views);  // there may be none
  for (const std::string& view : views) counter.AddDatabase(live.ViewDatabase(view));
  counter.AddFolder(live.file_folder);
  struct statvfs space {};
  if (statvfs(place.c_str(), &space) != 0) return std::nullopt;
  return Space{.databases = counter.all(),
               .needed = counter.Needed(),
               .free = static_cast<unsigned long long>(space.f_bavail) * space.f_frsize};
}

void LogFreeSpace(const package::VolumePaths& paths) {
  const std::string& sync_folder = paths.live.sync_folder;
  const std::optional<Space> space = MeasureSpace(paths, sync_folder);
  if (!logger::CheckErrno(space ? 0 : -1, "cannot tell the free space of %s: %s (%d)\n", sync_folder)) return;
  logger::SystemLog("the upgrade needs about %llu bytes on the volume, %llu are free\n", space->needed,
                    space->free);
}

}  // namespace updater
