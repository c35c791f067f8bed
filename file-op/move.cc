#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "file-op/file_op.h"
#include "file-op/folder_reader.h"

namespace file_op {
namespace {

int Move(const FilePlace& source, const FilePlace& target);

// A new folder is private until it is complete; one that is there already keeps its mode until then.
int MakeTarget(const FilePlace& target, Folder& made) {
  if (made.Make(target) == 0) return 0;
  return errno == EEXIST || FSMKDir(target.path, true) == 0 ? made.Open(target) : -1;
}

// A regular file in the folder stays at the source, so the removal at the end fails then; keep it so.
int MoveFolderAcross(const FilePlace& source, const FilePlace& target) {
  std::vector<Entry> entries;  // listed before the moves, so that no reader stays open for every level
  Folder from;
  Folder to;
  if (from.Open(source) < 0 || MakeTarget(target, to) < 0 || ListEntries(from.fd(), entries) < 0) {
    return kMoveFailed;
  }
  for (const Entry& entry : entries) {
    if (Move(from.In(entry.name), to.In(entry.name)) < 0) return kMoveFailed;
  }
  if (to.TakeOwnerAndMode(from) < 0) return kMoveFailed;
  return unlinkat(source.at, source.name.c_str(), AT_REMOVEDIR) == 0 ? 0 : kMoveFailed;
}

// What a rename would replace goes first.
int MoveFileAcross(const FilePlace& source, const FilePlace& target) {
  const bool is_free = unlinkat(target.at, target.name.c_str(), 0) == 0 || errno == ENOENT;
  return is_free && CopyKeepingOwner(source, target) == 0 ? 0 : kMoveFailed;
}

int MoveAcross(const FilePlace& source, const FilePlace& target, mode_t mode) {
  if (S_ISDIR(mode)) return MoveFolderAcross(source, target);
  return S_ISREG(mode) ? MoveFileAcross(source, target) : 0;
}

int Move(const FilePlace& source, const FilePlace& target) {
  const int result = Rename(source, target);
  struct stat status {};
  if (result != kMoveFailed || errno != EXDEV) return result;
  const bool is_there = fstatat(source.at, source.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  return is_there ? MoveAcross(source, target, status.st_mode) : kMoveNoSource;
}

}  // namespace

int Rename(const FilePlace& source, const FilePlace& target) {
  struct stat status {};
  if (fstatat(source.at, source.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) < 0) return kMoveNoSource;
  if (renameat(source.at, source.name.c_str(), target.at, target.name.c_str()) == 0) return 0;
  return errno == ENAMETOOLONG ? kMoveNameTooLong : kMoveFailed;
}

int FSMove(const std::string& source, const std::string& target, bool /*flag*/) {
  return source.empty() || target.empty() ? kFileOpFailed : Move(At(source), At(target));
}

}  // namespace file_op
