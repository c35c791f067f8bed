#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/path.h"
#include "base/retry.h"
#include "file-op/file_op.h"
#include "file-op/folder.h"

namespace file_op {
namespace {

bool IsFolder(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

bool FSExists(const std::string& path) { return Exists(At(path)); }

int FSMKDir(const std::string& path, bool parents, mode_t mode) {
  if (IsFolder(path)) return 0;
  Folder above;
  std::string name;
  if (OpenAround(path, above, name) < 0) {
    if (errno != ENOENT || !parents) return -1;
    if (FSMKDir(base::FolderOf(path), true) < 0 || OpenAround(path, above, name) < 0) return -1;
  }
  Folder made;
  if (made.MakeShared(above, name, mode) == 0) return 0;
  const int error = errno;
  if (error == EEXIST && IsFolder(path)) return 0;  // somebody was faster
  errno = error;
  return -1;
}

int FSMakeEmptyFile(const std::string& path) {
  Folder above;
  std::string name;
  return OpenAround(path, above, name) < 0 ? -1 : MakeEmptyFile(above, name);
}

int FSSyncFolder(const std::string& folder) {
  Folder opened;
  if (opened.Open(At(folder), 0) < 0) return -1;
  return base::RetryInterrupted([&] { return fsync(opened.fd()); });
}

int ListFolders(const std::string& folder, std::vector<std::string>& names) {
  names.clear();
  Folder opened;
  return opened.Open(At(folder), 0) < 0 ? -1 : ListFolders(opened, names);
}

}  // namespace file_op
