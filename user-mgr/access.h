// How the layer's own files reach the state of the manager.
#pragma once

#include <mutex>
#include <string>

#include "user-mgr/user_manager.h"

namespace user_mgr {

class Access {
 public:
  Access() = delete;

  static sqlite3* db() { return UserManager::db.get(); }                          // null when closed
  static const platform::Platform* platform() { return UserManager::platform_; }  // null when not configured
};

// Holds the lock for its own lifetime: the mutex first, then the lock file. Not recursive.
class ScopedLock {
 public:
  ScopedLock();
  ~ScopedLock();
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  std::lock_guard<std::mutex> threads_{UserManager::mutex};
};

// Opens the lock file, which is made when missing, for ScopedLock. Links are not followed, and only a regular
// file will do. Returns the descriptor, or -1 with errno set.
[[nodiscard]] int OpenLockFile(const std::string& path);

}  // namespace user_mgr
