#include "file-op/folder.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "base/path.h"
#include "base/real_folder.h"
#include "base/retry.h"
#include "file-op/folder_reader.h"

namespace file_op {
namespace {

int ListNames(const Folder& folder, Entry::Type type, std::vector<std::string>& names) {
  names.clear();
  std::vector<Entry> entries;
  if (ListEntries(folder.fd(), entries) < 0) return -1;
  for (Entry& entry : entries) {
    if (entry.type == type) names.push_back(std::move(entry.name));
  }
  return 0;
}

// Empties the file that is there. One that has another name too may be somebody else's file, put there for
// this process to destroy.
int EmptyFile(const FilePlace& place) {
  constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  base::FileDescriptor file(
      base::RetryInterrupted([&] { return openat(place.at, place.name.c_str(), kFlags); }));
  struct stat status {};
  if (!file.is_open() || fstat(file.get(), &status) < 0) return -1;
  if (!S_ISREG(status.st_mode) || (status.st_size != 0 && status.st_nlink != 1)) {
    errno = EINVAL;
    return -1;
  }
  if (status.st_size == 0) return 0;
  return base::RetryInterrupted([&] { return ftruncate(file.get(), 0); }) < 0 ? -1 : file.Close();
}

}  // namespace

int Folder::Open(const FilePlace& place, int flags) {
  base::FileDescriptor opened(base::RetryInterrupted(
      [&] { return openat(place.at, place.name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags); }));
  if (!opened.is_open()) return -1;
  folder_ = std::move(opened);
  path_ = place.path;
  return 0;
}

int Folder::OpenReal(const std::string& path) {
  base::RealFolder real;
  const base::Errno error = base::OpenRealFolder(path + "/.", real);
  if (error.ok()) return Open({real.folder.get(), ".", path});
  errno = error.number();
  return -1;
}

int Folder::Make(const FilePlace& place) {
  if (mkdirat(place.at, place.name.c_str(), S_IRWXU) < 0 || Open(place) < 0) return -1;
  struct stat status {};
  if (fstat(fd(), &status) < 0) return -1;
  if (status.st_uid == geteuid()) return 0;
  errno = ESTALE;
  return -1;
}

int Folder::Make(const std::string& path) {
  Folder above;
  std::string name;
  return OpenAround(path, above, name) < 0 ? -1 : Make({above.fd(), name, path});
}

int Folder::MakeShared(const Folder& above, const std::string& name, mode_t mode) {
  struct stat status {};
  if (fstat(above.fd(), &status) < 0 || Make(above.In(name)) < 0) return -1;
  status.st_mode = (status.st_mode & S_ISGID) | mode;  // the kernel gives this bit to new folders by itself
  return ApplyOwnerAndMode(fd(), status);
}

int Folder::TakeOwnerAndMode(const Folder& source) const {
  struct stat status {};
  return fstat(source.fd(), &status) < 0 ? -1 : ApplyOwnerAndMode(fd(), status);
}

int OpenAround(const std::string& path, Folder& above, std::string& name) {
  name = base::NameOf(path);
  base::RealFolder real;
  const base::Errno error = base::OpenRealFolder(path, real);
  if (error.ok()) return above.Open({real.folder.get(), ".", base::FolderOf(path)}, O_PATH);
  errno = error.number();
  return -1;
}

int ApplyOwnerAndMode(int fd, const struct stat& status) {
  mode_t bits = status.st_mode & ALLPERMS;
  if (fchown(fd, status.st_uid, status.st_gid) < 0) {
    if (errno != EPERM) return -1;
    bits &= ACCESSPERMS | S_ISVTX;  // what runs as the owner must not run as somebody else
    // A process may give a file to a group that it is in. Otherwise the file keeps the process's own group,
    // which gets no more than everybody, because the rest was meant for another group.
    if (fchown(fd, static_cast<uid_t>(-1), status.st_gid) < 0) {
      if (errno != EPERM) return -1;
      bits &= ~static_cast<mode_t>(S_IRWXG) | (bits & S_IRWXO) << 3U;
    }
  }
  return fchmod(fd, bits);
}

int MakeFileLike(const FilePlace& place, const std::string& like, base::FileDescriptor& out) {
  struct stat status {};
  if (lstat(like.c_str(), &status) < 0) return -1;
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return -1;
  }
  status.st_mode &= ACCESSPERMS;
  base::FileDescriptor made(base::RetryInterrupted([&] {
    return openat(place.at, place.name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                  S_IRUSR | S_IWUSR);
  }));
  if (!made.is_open() || ApplyOwnerAndMode(made.get(), status) < 0) return -1;
  out = std::move(made);
  return 0;
}

int MakeEmptyFile(const Folder& above, const std::string& name) {
  struct stat around {};
  if (fstat(above.fd(), &around) < 0) return -1;
  base::FileDescriptor made(base::RetryInterrupted([&] {
    return openat(above.fd(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
  }));
  if (!made.is_open()) return errno == EEXIST ? EmptyFile(above.In(name)) : -1;
  struct stat status {};
  if (fstat(made.get(), &status) < 0) return -1;
  status.st_uid = around.st_uid;
  status.st_gid = around.st_gid;
  return ApplyOwnerAndMode(made.get(), status) < 0 ? -1 : made.Close();
}

bool Exists(const FilePlace& place) {
  struct stat status {};
  return fstatat(place.at, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

int Find(const FilePlace& place) {
  if (Exists(place)) return 1;
  return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
}

int CheckMovable(const FilePlace& place) {
  struct statx status {};
  if (statx(place.at, place.name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &status) < 0) {
    return errno == ENOENT ? 0 : -1;
  }
  const auto has = [&status](std::uint64_t attribute) { return (status.stx_attributes & attribute) != 0; };
  const bool is_mount = has(STATX_ATTR_MOUNT_ROOT);
  if (!is_mount && !has(STATX_ATTR_IMMUTABLE) && !has(STATX_ATTR_APPEND)) return 0;
  errno = is_mount ? EBUSY : EPERM;
  return -1;
}

int ListFolders(const Folder& folder, std::vector<std::string>& names) {
  return ListNames(folder, Entry::Type::kFolder, names);
}

int ListLinkedFolders(const Folder& folder, std::vector<std::string>& names) {
  if (ListNames(folder, Entry::Type::kLink, names) < 0) return -1;
  std::erase_if(names, [&](const std::string& name) {
    struct stat status {};
    return fstatat(folder.fd(), name.c_str(), &status, 0) < 0 || !S_ISDIR(status.st_mode);
  });
  return 0;
}

}  // namespace file_op
