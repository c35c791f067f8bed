#include <fcntl.h>
#include <poll.h>
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

namespace {

constexpr int kPauseMilliseconds = 10;

base::Errno TryLock(int file) {
  const int result = base::RetryInterrupted([file] { return flock(file, LOCK_EX | LOCK_NB); });
  return result == 0 ? base::Errno() : base::Errno::Last();
}

// Waits no longer than what is left of the patience, and takes the time from it.
base::Errno WaitForLock(LockFile& lock) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  base::Errno error(EWOULDBLOCK);
  while (error.number() == EWOULDBLOCK && Clock::now() - start < lock.patience) {
    (void)poll(nullptr, 0, kPauseMilliseconds);  // a signal may cut the pause short
    error = TryLock(lock.file.get());
  }
  lock.patience -= std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
  return error;
}

}  // namespace

ScopedLock::ScopedLock() {
  may_go_on_ = true;
  if (!UserManager::lock.file.is_open()) return;  // the database is nobody else's
  base::Errno error = TryLock(UserManager::lock.file.get());
  if (error.number() == EWOULDBLOCK) {
    logger::ComponentLog(kComponent, logger::Level::kWarning,
                         "UserManager: another process holds %s, waiting for it\n", UserManager::lock_path_);
    error = WaitForLock(UserManager::lock);
  }
  may_go_on_ = error.number() != EWOULDBLOCK;
  if (!error.ok()) logger::ComponentError(kComponent, "UserManager: flock: %s\n", error.Text());
}

ScopedLock::~ScopedLock() {
  (void)flock(UserManager::lock.file.get(), LOCK_UN);  // fails only if it was not taken, which was logged
}

}  // namespace user_mgr
