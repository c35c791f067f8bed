#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

#include "file-op/copy_file.h"
#include "file-op/file_op.h"
#include "file-op/tree_walk.h"

namespace file_op {
namespace {

int LogFailure(const std::string& path) {
  const base::Errno error = base::Errno::Last();
  logger::ComponentErrno(kFileOpComponent, error, "FSCopyTree: %s: %s (%d)\n", path);
  return ResultOfCopy(error);
}

// Makes the same tree below its own cursor, which follows the walk. Folders stay private until everything in
// them is copied.
class FSDuplicator : public TraverseHandler {
 public:
  explicit FSDuplicator(const std::function<int(const Folder&)>& finish) : finish_(finish) {}

  [[nodiscard]] int Start(const std::string& target) {
    Folder top;
    if (top.Make(target) < 0) return LogFailure(target);
    target_.StartAt(std::move(top));
    return 0;
  }

  int OnEntry(const FolderCursor& folder, const Entry& entry) override {
    switch (entry.type) {
      case Entry::Type::kFolder:
        return mkdirat(target_.fd(), entry.name.c_str(), S_IRWXU) == 0 ? 0 : LogEntryFailure(entry.name);
      case Entry::Type::kFile:
        return CopyFile(folder.here().In(entry.name), target_.here().In(entry.name),
                        {.source_flags = O_NOFOLLOW});
      case Entry::Type::kLink:
        return CopyLink(folder.fd(), entry.name) ? 0 : LogEntryFailure(entry.name);
      case Entry::Type::kOther:
        break;
    }
    return 0;
  }

  int OnEnter(const std::string& name) override {
    return target_.Enter(name) == 0 ? 0 : LogEntryFailure(name);
  }

  int OnFinish(const FolderCursor& folder) override {
    const int finished = target_.is_at_top() && finish_ ? finish_(target_.here()) : 0;
    if (finished < 0) return finished;
    return target_.here().TakeOwnerAndMode(folder.here()) == 0 ? 0 : LogFailure(target_.path());
  }

  int OnLeave(const FolderCursor& /*folder*/, const std::string& /*name*/) override {
    return target_.Leave() == 0 ? 0 : LogFailure(target_.path());
  }

  int OnWalkFailure(const FolderCursor& folder) override { return LogFailure(folder.path()); }

 private:
  [[nodiscard]] int LogEntryFailure(const std::string& name) const {
    return LogFailure(target_.path() + "/" + name);
  }

  [[nodiscard]] bool CopyLink(int source, const std::string& name) const {
    std::array<char, PATH_MAX> text{};
    const ssize_t length = readlinkat(source, name.c_str(), text.data(), text.size() - 1);
    struct stat status {};
    if (length < 0 || fstatat(source, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) < 0 ||
        symlinkat(text.data(), target_.fd(), name.c_str()) < 0) {
      return false;
    }
    return fchownat(target_.fd(), name.c_str(), status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) == 0 ||
           errno == EPERM;  // a process that may not change owners keeps its own
  }

  const std::function<int(const Folder&)>& finish_;
  FolderCursor target_;
};

}  // namespace

int FSCopyTree(const std::string& source, const std::string& target,
               const std::function<int(const Folder&)>& finish) {
  FolderCursor cursor;
  if (cursor.OpenTop(At(source)) < 0) return LogFailure(source);
  FSDuplicator duplicator(finish);
  const int started = duplicator.Start(target);
  return started < 0 ? started : WalkTree(cursor, duplicator);
}

}  // namespace file_op
