#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "file-op/file_op.h"
#include "file-op/tree_walk.h"

namespace file_op {
namespace {

// Unlinks every entry of a tree, each folder after what is in it. What is mounted in the tree is not the
// tree's own and is not entered.
class FSRemover : public TraverseHandler {
 public:
  int OnEntry(const FolderCursor& folder, const Entry& entry) override {
    return entry.type == Entry::Type::kFolder ? CheckMovable(folder.here().In(entry.name))
                                              : Unlink(folder, entry.name, 0);
  }
  int OnLeave(const FolderCursor& folder, const std::string& name) override {
    return Unlink(folder, name, AT_REMOVEDIR);
  }

 private:
  static int Unlink(const FolderCursor& folder, const std::string& name, int flags) {
    return unlinkat(folder.fd(), name.c_str(), flags) == 0 || errno == ENOENT ? 0 : -1;
  }
};

}  // namespace

int RemoveTree(const FilePlace& place) {
  if (unlinkat(place.at, place.name.c_str(), 0) == 0 || errno == ENOENT) return 0;
  if (errno != EISDIR) return -1;
  FolderCursor cursor;
  FSRemover remover;
  if (CheckMovable(place) < 0 || cursor.OpenTop(place) < 0 || WalkTree(cursor, remover) < 0) return -1;
  return unlinkat(place.at, place.name.c_str(), AT_REMOVEDIR);
}

int FSRemoveTree(const std::string& path, int /*flag*/) { return RemoveTree(At(path)); }

}  // namespace file_op
