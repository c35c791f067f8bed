#include "file-op/tree_walk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "base/retry.h"

namespace file_op {
namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

struct Level {
  std::string name;                  // in the folder above; empty at the top
  std::vector<std::string> folders;  // still to be walked
};

int VisitEntries(const FolderCursor& cursor, TraverseHandler& handler, std::vector<std::string>& folders) {
  FolderReader reader;
  if (reader.Open(cursor.fd(), ".") < 0) return handler.OnWalkFailure(cursor);
  Entry entry;
  int read = 0;
  while ((read = reader.Next(entry)) > 0) {
    const int result = handler.OnEntry(cursor, entry);
    if (result < 0) return result;
    if (entry.type == Entry::Type::kFolder) folders.push_back(entry.name);
  }
  return read < 0 ? handler.OnWalkFailure(cursor) : 0;
}

int EnterNext(FolderCursor& cursor, TraverseHandler& handler, std::vector<Level>& levels) {
  Level next = {.name = std::move(levels.back().folders.back()), .folders = {}};
  levels.back().folders.pop_back();
  if (cursor.Enter(next.name) < 0) return handler.OnWalkFailure(cursor);
  int result = handler.OnEnter(next.name);
  if (result == 0) result = VisitEntries(cursor, handler, next.folders);
  levels.push_back(std::move(next));
  return result;
}

int FinishLevel(FolderCursor& cursor, TraverseHandler& handler, std::vector<Level>& levels) {
  const int result = handler.OnFinish(cursor);
  if (result < 0) return result;
  const std::string name = std::move(levels.back().name);
  levels.pop_back();
  if (levels.empty()) return 0;
  if (cursor.Leave() < 0) return handler.OnWalkFailure(cursor);
  return handler.OnLeave(cursor, name);
}

}  // namespace

int FolderCursor::OpenTop(const std::string& path) {
  base::FileDescriptor top(
      base::RetryInterrupted([&] { return open(path.c_str(), kOpenFolder | O_NOFOLLOW); }));
  if (!top.is_open()) return -1;
  folder_ = std::move(top);
  path_ = path;
  above_.clear();
  return 0;
}

int FolderCursor::Enter(const std::string& name) {
  struct stat here {};
  if (fstat(folder_.get(), &here) < 0) return -1;
  base::FileDescriptor below(
      base::RetryInterrupted([&] { return openat(folder_.get(), name.c_str(), kOpenFolder | O_NOFOLLOW); }));
  if (!below.is_open()) return -1;
  above_.push_back({here.st_dev, here.st_ino, path_.size()});
  path_ += '/';
  path_ += name;
  folder_ = std::move(below);
  return 0;
}

int FolderCursor::Leave() {
  base::FileDescriptor parent(
      base::RetryInterrupted([&] { return openat(folder_.get(), "..", kOpenFolder); }));
  struct stat there {};
  if (!parent.is_open() || fstat(parent.get(), &there) < 0) return -1;
  const Above& expected = above_.back();
  if (there.st_dev != expected.device || there.st_ino != expected.inode) {
    errno = ESTALE;
    return -1;
  }
  path_.resize(expected.path_length);
  above_.pop_back();
  folder_ = std::move(parent);
  return 0;
}

int TraverseHandler::OnEnter(const std::string& /*name*/) { return 0; }
int TraverseHandler::OnFinish(const FolderCursor& /*folder*/) { return 0; }
int TraverseHandler::OnLeave(const FolderCursor& /*folder*/, const std::string& /*name*/) { return 0; }
int TraverseHandler::OnWalkFailure(const FolderCursor& /*folder*/) { return -1; }

int WalkTree(FolderCursor& cursor, TraverseHandler& handler) {
  std::vector<Level> levels(1);
  int result = VisitEntries(cursor, handler, levels.back().folders);
  while (result == 0 && !levels.empty()) {
    result = levels.back().folders.empty() ? FinishLevel(cursor, handler, levels)
                                           : EnterNext(cursor, handler, levels);
  }
  return result;
}

}  // namespace file_op
