#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/file_descriptor.h"
#include "base/retry.h"
#include "file-op/file_op.h"
#include "file-op/folder_reader.h"

namespace file_op {
namespace {

bool IsFolder(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The path without its last component; empty when there is nothing above.
std::string Parent(const std::string& path) {
  const std::size_t last = path.find_last_not_of('/');
  const std::size_t slash = last == std::string::npos ? last : path.rfind('/', last);
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

base::FileDescriptor OpenFolder(const std::string& path) {
  return base::FileDescriptor(
      base::RetryInterrupted([&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

}  // namespace

bool FSExists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

int FSMKDir(const std::string& path, bool parents) {
  constexpr mode_t kMode = 0755;
  if (mkdir(path.c_str(), kMode) == 0) return 0;
  if (errno == EEXIST) {
    if (IsFolder(path)) return 0;
    errno = EEXIST;
    return -1;
  }
  if (errno != ENOENT || !parents) return -1;
  const std::string parent = Parent(path);
  if (parent.empty()) {
    errno = ENOENT;
    return -1;
  }
  return FSMKDir(parent, true) < 0 ? -1 : FSMKDir(path, false);
}

int FSMakeEmptyFile(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  base::FileDescriptor file(base::RetryInterrupted([&] { return open(path.c_str(), kFlags, 0666); }));
  return file.is_open() ? file.Close() : -1;
}

int FSSyncFolder(const std::string& folder) {
  const base::FileDescriptor handle = OpenFolder(folder);
  return handle.is_open() ? base::RetryInterrupted([&] { return fsync(handle.get()); }) : -1;
}

int FSSyncFileSystem(const std::string& path) {
  const base::FileDescriptor handle = OpenFolder(path);
  return handle.is_open() ? base::RetryInterrupted([&] { return syncfs(handle.get()); }) : -1;
}

int ListFolders(const std::string& folder, std::vector<std::string>& names) {
  names.clear();
  FolderReader reader;
  if (reader.Open(AT_FDCWD, folder) < 0) return -1;
  Entry entry;
  int read = 0;
  while ((read = reader.Next(entry)) > 0) {
    if (entry.type == Entry::Type::kFolder) names.push_back(entry.name);
  }
  return read;
}

}  // namespace file_op
