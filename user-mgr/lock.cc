#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "base/retry.h"
#include "user-mgr/access.h"
#include "user-mgr/component.h"

namespace user_mgr {

base::Errno OpenLockFile(const std::string& path, base::FileDescriptor& file) {
  constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC;
  // The first attempt is without O_CREAT, because the kernel may refuse that flag even to root for a file of
  // another user in /tmp.
  base::FileDescriptor opened(open(path.c_str(), kFlags));
  if (!opened.is_open() && errno == ENOENT) {
    opened = base::FileDescriptor(open(path.c_str(), kFlags | O_CREAT, 0644));
  }
  struct stat status {};
  if (!opened.is_open() || fstat(opened.get(), &status) != 0) return base::Errno::Last();
  if (!S_ISREG(status.st_mode)) return base::Errno(EINVAL);
  file = std::move(opened);
  return {};
}

ScopedLock::ScopedLock() {
  const int result = base::RetryInterrupted([] { return flock(UserManager::lock.get(), LOCK_EX); });
  // The operation goes on without the lock: SQLite has locks of its own that keep the database whole.
  if (result < 0) {
    logger::ComponentError(kComponent, "UserManager: flock: %s\n", base::Errno::Last().Text());
  }
}

ScopedLock::~ScopedLock() {
  (void)flock(UserManager::lock.get(), LOCK_UN);  // fails only if it was not taken, which was logged
}

}  // namespace user_mgr
