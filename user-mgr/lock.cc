#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "user-mgr/access.h"
#include "user-mgr/statement.h"

namespace user_mgr {
namespace {

constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC;

}  // namespace

int OpenLockFile(const std::string& path) {
  // Not O_CREAT at once: the kernel may refuse that flag even to root for a file of another user in /tmp.
  int fd = open(path.c_str(), kFlags);
  if (fd < 0 && errno == ENOENT) fd = open(path.c_str(), kFlags | O_CREAT, 0644);
  if (fd < 0) return -1;
  struct stat status {};
  int error = fstat(fd, &status) == 0 ? 0 : errno;
  if (error == 0 && !S_ISREG(status.st_mode)) error = EINVAL;
  if (error == 0) return fd;
  (void)close(fd);  // nothing was written
  errno = error;
  return -1;
}

ScopedLock::ScopedLock() {
  int result = 0;
  while ((result = flock(UserManager::lock, LOCK_EX)) != 0 && errno == EINTR) {
  }
  // Goes on: SQLite has locks of its own that keep the database whole.
  if (result != 0) {
    logger::ComponentError(kComponent, "UserManager: flock: %s\n", std::strerror(errno));
  }
}

ScopedLock::~ScopedLock() {
  (void)flock(UserManager::lock, LOCK_UN);  // fails only if it was not taken, which was logged
}

}  // namespace user_mgr
