#include "file-op/tree_walk.h"

#include <cerrno>
#include <utility>

namespace file_op {
namespace {

struct Level {
  std::string name;                  // in the folder above; empty at the top
  std::vector<std::string> folders;  // still to be walked
};

int VisitEntries(const FolderCursor& cursor, TraverseHandler& handler, std::vector<std::string>& folders) {
  FolderReader reader;
  if (reader.Open(cursor.fd()) < 0) return handler.OnWalkFailure(cursor);
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

int FolderCursor::OpenTop(const FilePlace& top) {
  Folder opened;
  if (opened.Open(top) < 0) return -1;
  StartAt(std::move(opened));
  return 0;
}

void FolderCursor::StartAt(Folder top) {
  here_ = std::move(top);
  above_.clear();
}

int FolderCursor::Enter(const std::string& name) {
  struct stat status {};
  Folder below;
  if (fstat(fd(), &status) < 0 || below.Open(here_.In(name)) < 0) return -1;
  above_.push_back({status.st_dev, status.st_ino, path().size()});
  here_ = std::move(below);
  return 0;
}

int FolderCursor::Leave() {
  const Above& expected = above_.back();
  Folder parent;
  struct stat there {};
  if (parent.Open({fd(), "..", path().substr(0, expected.path_length)}) < 0 ||
      fstat(parent.fd(), &there) < 0) {
    return -1;
  }
  if (there.st_dev != expected.device || there.st_ino != expected.inode) {
    errno = ESTALE;
    return -1;
  }
  above_.pop_back();
  here_ = std::move(parent);
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
