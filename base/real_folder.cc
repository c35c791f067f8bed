#include "base/real_folder.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <string_view>
#include <utility>

#include "base/path.h"
#include "base/text.h"

namespace base {
namespace {

constexpr int kMaxLinks = 40;  // as the kernel's

bool OpenStep(int at, const char* name, FileDescriptor& opened, struct stat& status) {
  opened = FileDescriptor(openat(at, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  return opened.is_open() && fstat(opened.get(), &status) == 0;
}

bool ReadLink(int link, std::string& target) {
  std::array<char, PATH_MAX> text{};
  const ssize_t length = readlinkat(link, "", text.data(), text.size());
  if (length > 0) target.assign(text.data(), static_cast<std::size_t>(length));
  return length > 0;
}

// The whole way to the folder, from the root on.
std::string WayTo(const std::string& folder) {
  if (folder.starts_with('/')) return folder;
  std::array<char, PATH_MAX> current{};
  return getcwd(current.data(), current.size()) == nullptr ? folder
                                                           : std::string(current.data()) + "/" + folder;
}

class Walk {
 public:
  explicit Walk(const std::string& folder) : way_(WayTo(folder)) {}

  Errno Run(RealFolder& out) {
    struct stat status {};
    if (!OpenStep(AT_FDCWD, "/", here_.folder, status)) return Errno::Last();
    while (!way_.empty()) {
      std::string_view rest = way_;
      const std::string name(TakeUntil(rest, "/"));
      way_ = std::string(rest);
      const Errno error = name.empty() || name == "." ? Errno() : Step(name);
      if (!error.ok()) return error;
    }
    out = std::move(here_);
    return {};
  }

 private:
  Errno Step(const std::string& name) {
    FileDescriptor next;
    struct stat status {};
    if (!OpenStep(here_.folder.get(), name.c_str(), next, status)) return Errno::Last();
    if (S_ISLNK(status.st_mode)) return Follow(next.get(), status.st_uid);
    if (!S_ISDIR(status.st_mode)) return Errno(ENOTDIR);
    here_.folder = std::move(next);
    here_.path = name == ".." ? here_.path.substr(0, here_.path.rfind('/')) : here_.path + "/" + name;
    return {};
  }

  Errno Follow(int link, uid_t owner) {
    if (++links_ > kMaxLinks || (owner != 0 && owner != geteuid())) return Errno(ELOOP);
    std::string target;
    struct stat status {};
    if (!ReadLink(link, target)) return Errno::Last();
    if (target.starts_with('/')) {
      if (!OpenStep(AT_FDCWD, "/", here_.folder, status)) return Errno::Last();
      here_.path.clear();
    }
    way_ = target + "/" + way_;
    return {};
  }

  RealFolder here_;  // the path of the root is empty
  std::string way_;
  int links_ = 0;
};

// Most ways have no links, and newer kernels (5.6) go such a way in one call. Returns whether it was gone.
bool GoWithoutLinks(const std::string& folder, RealFolder& out) {
  const bool is_plain = folder.starts_with('/') && folder.find("//") == folder.npos &&
                        folder.find("/.") == folder.npos && !folder.ends_with('/');
  if (!is_plain) return false;
  struct open_how how {};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS;
  FileDescriptor opened(static_cast<int>(syscall(SYS_openat2, AT_FDCWD, folder.c_str(), &how, sizeof how)));
  if (!opened.is_open()) return false;
  out = {std::move(opened), folder};
  return true;
}

}  // namespace

Errno OpenRealFolder(const std::string& path, RealFolder& out) {
  const std::string folder = FolderOf(path);
  return GoWithoutLinks(folder, out) ? Errno() : Walk(folder).Run(out);
}

}  // namespace base
