#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "file-op/file_op.h"
#include "file-op/folder_reader.h"

namespace file_op {
namespace {

// All names first, so that deep trees do not hold a descriptor for every level.
int ListEntries(const std::string& folder, std::vector<std::string>& names) {
  FolderReader reader;
  if (reader.Open(AT_FDCWD, folder) < 0) return -1;
  Entry entry;
  int read = 0;
  while ((read = reader.Next(entry)) > 0) names.push_back(entry.name);
  return read;
}

// A regular file in the folder stays at the source, so the removal at the end fails then; keep it so.
int MoveFolderAcross(const std::string& source, const std::string& target) {
  std::vector<std::string> names;
  if (FSMKDir(target, true) < 0 || ListEntries(source, names) < 0) return kMoveFailed;
  const auto in = [](std::string folder, const std::string& name) { return folder.append("/").append(name); };
  for (const std::string& name : names) {
    if (FSMove(in(source, name), in(target, name), true) < 0) return kMoveFailed;
  }
  if (CopyOwnerAndMode(source, target) < 0) return kMoveFailed;
  return std::remove(source.c_str()) == 0 ? 0 : kMoveFailed;
}

int MoveAcross(const std::string& source, const std::string& target, mode_t mode) {
  if (S_ISDIR(mode)) return MoveFolderAcross(source, target);
  if (!S_ISREG(mode)) return 0;
  return FSCopyKeepingOwner(source, target) < 0 ? kMoveFailed : 0;
}

}  // namespace

int FSMove(const std::string& source, const std::string& target, bool /*flag*/) {
  if (source.empty() || target.empty()) return kFileOpFailed;
  struct stat status {};
  if (lstat(source.c_str(), &status) < 0) return kMoveNoSource;
  if (std::rename(source.c_str(), target.c_str()) == 0) return 0;
  if (errno == ENAMETOOLONG) return kMoveNameTooLong;
  return errno == EXDEV ? MoveAcross(source, target, status.st_mode) : kMoveFailed;
}

}  // namespace file_op
