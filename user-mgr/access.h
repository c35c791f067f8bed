// How the layer's own files reach the state of the manager.
#pragma once

#include <mutex>
#include <string>

#include "base/errno.h"
#include "base/file_descriptor.h"
#include "user-mgr/user_manager.h"

namespace user_mgr {

class Access {
 public:
  Access() = delete;

  static sqlite3* db() { return UserManager::db.get(); }  // null when closed
  static LockFile& lock() { return UserManager::lock; }
};

// Holds the lock for its own lifetime: the mutex first, then the lock file. Not recursive.
class ScopedLock {
 public:
  ScopedLock();
  ~ScopedLock();
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

  // False, after logging, when another process has kept the lock file for too long: the operation fails. It
  // goes on after any other failure, because SQLite has locks of its own that keep the database whole.
  [[nodiscard]] bool may_go_on() const { return may_go_on_; }

 private:
  std::lock_guard<std::mutex> threads_{UserManager::mutex};
  bool may_go_on_;
};

// Opens the lock file for ScopedLock, and makes it when it is missing. Does not follow links. Anything but a
// regular file is EINVAL. `file` is replaced on success only.
[[nodiscard]] base::Errno OpenLockFile(const std::string& path, base::FileDescriptor& file);

}  // namespace user_mgr
