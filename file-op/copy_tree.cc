#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "file-op/copy_file.h"
#include "file-op/file_op.h"
#include "file-op/tree_walk.h"

namespace file_op {
namespace {

int LogFailure(const std::string& path) {
  const int error = errno;
  logger::ComponentError(kFileOpComponent, "FSCopyTree: %s: %s (%d)\n", path, std::strerror(error), error);
  return error == ENOSPC || error == EDQUOT ? kCopyDiskFull : kFileOpFailed;
}

// Makes the same tree below its own cursor, which follows the walk. Folders stay private until everything in
// them is copied.
class FSDuplicator : public TraverseHandler {
 public:
  [[nodiscard]] int Start(const std::string& target) {
    return mkdir(target.c_str(), S_IRWXU) == 0 && target_.OpenTop(target) == 0 ? 0 : LogFailure(target);
  }

  int OnEntry(const FolderCursor& folder, const Entry& entry) override {
    switch (entry.type) {
      case Entry::Type::kFolder:
        return mkdirat(target_.fd(), entry.name.c_str(), S_IRWXU) == 0 ? 0 : LogEntryFailure(entry.name);
      case Entry::Type::kFile:
        return CopyFile({folder.fd(), entry.name, folder.path() + "/" + entry.name},
                        {target_.fd(), entry.name, target_.path() + "/" + entry.name},
                        {.source_flags = O_NOFOLLOW,
                         .target_flags = O_NOFOLLOW | O_EXCL,
                         .mode = kPrivateMode,
                         .keep_owner = true});
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
    struct stat status {};
    return fstat(folder.fd(), &status) == 0 && ApplyOwnerAndMode(target_.fd(), status) == 0
               ? 0
               : LogFailure(target_.path());
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

  FolderCursor target_;
};

}  // namespace

int FSCopyTree(const std::string& source, const std::string& target) {
  FolderCursor cursor;
  if (cursor.OpenTop(source) < 0) return LogFailure(source);
  FSDuplicator duplicator;
  const int started = duplicator.Start(target);
  return started < 0 ? started : WalkTree(cursor, duplicator);
}

}  // namespace file_op
