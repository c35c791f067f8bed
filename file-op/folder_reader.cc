#include "file-op/folder_reader.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/file_descriptor.h"
#include "base/retry.h"

namespace file_op {
namespace {

Entry::Type TypeOfMode(mode_t mode) {
  if (S_ISDIR(mode)) return Entry::Type::kFolder;
  if (S_ISREG(mode)) return Entry::Type::kFile;
  return S_ISLNK(mode) ? Entry::Type::kLink : Entry::Type::kOther;
}

}  // namespace

void FolderReader::CloseFolder::operator()(DIR* folder) const noexcept {
  const int error = errno;  // it may be on its way to a caller
  (void)closedir(folder);   // nothing was written
  errno = error;
}

int FolderReader::Open(int folder) {
  folder_.reset();
  const int fd =
      base::RetryInterrupted([&] { return openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (fd < 0) return -1;
  folder_.reset(fdopendir(fd));
  if (folder_) return 0;
  const base::FileDescriptor unused(fd);
  return -1;
}

int FolderReader::Next(Entry& entry) {
  for (;;) {
    errno = 0;  // the only way to tell the end from a failure
    const dirent* const read = readdir(folder_.get());
    if (read == nullptr) return errno == 0 ? 0 : -1;
    entry.name = read->d_name;
    if (entry.name == "." || entry.name == "..") continue;
    if (read->d_type != DT_UNKNOWN) {
      entry.type = TypeOfMode(static_cast<mode_t>(DTTOIF(read->d_type)));
      return 1;
    }
    struct stat status {};
    if (fstatat(dirfd(folder_.get()), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
      entry.type = TypeOfMode(status.st_mode);
      return 1;
    }
    if (errno != ENOENT) return -1;
  }
}

int ListEntries(int folder, std::vector<Entry>& entries) {
  FolderReader reader;
  if (reader.Open(folder) < 0) return -1;
  Entry entry;
  int read = 0;
  while ((read = reader.Next(entry)) > 0) entries.push_back(entry);
  return read;
}

}  // namespace file_op
