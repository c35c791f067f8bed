// Open folders, and what is made in them.
//
// The package's folders belong to its service, whose processes can rename what is in them, or put a link in
// its place, at any moment; this program runs as root. So the folder around a new thing is opened first, the
// thing is made in it by its name and must not have been there, and owner and mode are set through its own
// descriptor. Results are 0, or -1 with errno set.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "base/file_descriptor.h"

namespace file_op {

// A file or folder: its name relative to the open folder `at`, and how messages call it.
struct FilePlace {
  int at;
  std::string name;
  std::string path;
};

// The place that a path names, relative to no folder.
[[nodiscard]] inline FilePlace At(const std::string& path) { return {AT_FDCWD, path, path}; }

class Folder {
 public:
  Folder() = default;
  Folder(base::FileDescriptor folder, std::string path)
      : folder_(std::move(folder)), path_(std::move(path)) {}

  // Opens a folder, with `flags` added; without O_NOFOLLOW among them a link in its place is followed.
  [[nodiscard]] int Open(const FilePlace& place, int flags = O_NOFOLLOW);

  // Opens a folder that may be reached through links of root and of this process's user (see
  // base::OpenRealFolder); ELOOP at a link of somebody else.
  [[nodiscard]] int OpenReal(const std::string& path);

  // Makes a folder that must not be there and that nobody else can look into (mode 0700), and opens it.
  // ESTALE when somebody else's folder stands there by then.
  [[nodiscard]] int Make(const FilePlace& place);
  [[nodiscard]] int Make(const std::string& path);

  // The same for a folder that belongs to whom `above` belongs to and has exactly that mode, whatever the
  // umask.
  [[nodiscard]] int MakeShared(const Folder& above, const std::string& name, mode_t mode);

  // Gives this folder the owner and the permission bits of another.
  [[nodiscard]] int TakeOwnerAndMode(const Folder& source) const;

  [[nodiscard]] int fd() const { return folder_.get(); }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] FilePlace In(const std::string& name) const { return {fd(), name, path_ + "/" + name}; }

 private:
  base::FileDescriptor folder_;
  std::string path_;
};

// Opens the folder around `path`, where links of root and of this process's user are followed (see
// base::OpenRealFolder), and tells the name that `path` has in it.
[[nodiscard]] int OpenAround(const std::string& path, Folder& above, std::string& name);

// Gives the open file the owner and permission bits of `status`, as far as the process may.
[[nodiscard]] int ApplyOwnerAndMode(int fd, const struct stat& status);

// Makes an empty file that must not be there, with the owner and the access bits of the regular file `like`,
// open for reading and writing.
[[nodiscard]] int MakeFileLike(const FilePlace& place, const std::string& like, base::FileDescriptor& out);

// Makes an empty file in `above` that belongs to whom `above` belongs to, mode 0666 less the umask, or
// empties the one that is there, whose owner stays. A link is not followed, a pipe without a reader not
// waited for; a file that has content and other names as well is not touched (EINVAL).
[[nodiscard]] int MakeEmptyFile(const Folder& above, const std::string& name);

// True when something, be it a link, is at the place.
[[nodiscard]] bool Exists(const FilePlace& place);

// The same for whoever must not take a failure for absence: 1 when something is there, 0 when nothing is, or
// -1 with errno set.
[[nodiscard]] int Find(const FilePlace& place);

// Whether what is at the place can be renamed, or something renamed over it: EBUSY for a mount point, EPERM
// for what is immutable or append-only. Nothing at the place is success.
[[nodiscard]] int CheckMovable(const FilePlace& place);

// The names of the folders in a folder, in directory order, "." and ".." excluded; links are no folders. An
// entry whose type the file system does not tell is asked for.
[[nodiscard]] int ListFolders(const Folder& folder, std::vector<std::string>& names);

// The names of the links in a folder that lead to folders, in directory order.
[[nodiscard]] int ListLinkedFolders(const Folder& folder, std::vector<std::string>& names);

}  // namespace file_op
