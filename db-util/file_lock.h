// Locks on bytes of a file, as SQLite takes them.
#pragma once

#include <fcntl.h>

namespace db_util {

struct LockedBytes {
  off_t first;
  off_t count;
};

// The bytes that SQLite locks of a database, and of the index of its write-ahead log.
inline constexpr LockedBytes kPendingByte = {0x40000000, 1};  // somebody is about to write
inline constexpr LockedBytes kReservedByte = {0x40000001, 1};
inline constexpr LockedBytes kSharedBytes = {0x40000002, 510};
inline constexpr LockedBytes kBytesOfDatabase = {0x40000000, 512};  // all of these
inline constexpr LockedBytes kBytesOfIndex = {120, 9};

// For fcntl(2): F_RDLCK, F_WRLCK or F_UNLCK on these bytes.
[[nodiscard]] inline struct flock LockOf(int type, LockedBytes bytes) {
  struct flock lock {};
  lock.l_type = static_cast<short>(type);
  lock.l_whence = SEEK_SET;
  lock.l_start = bytes.first;
  lock.l_len = bytes.count;
  return lock;
}

}  // namespace db_util
