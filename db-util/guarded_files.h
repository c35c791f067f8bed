// How SQLite reaches files in folders of others.
//
// This program runs as root on databases that belong to the package's service, and SQLite trusts what lies
// beside a database: a journal may name one more file, which is deleted when the journal was rolled back, and
// whatever has the name of a companion is written to and given to the owner of the database. It trusts names,
// too, and the service can put a link at any of them, at any moment.
#pragma once

#include <string>

namespace db_util {

// The name of SQLite's own file system layer with limits:
// - It deletes nothing but the companions of databases that were opened through it, and what is named like a
//   super-journal.
// - On the way to a database and its companions no link is followed that somebody else than root and this
//   process's user made, and none at the end of the way.
// - What was opened must be a regular file without other names.
// What is refused is a failure, after a line in the system log. Made with the first call.
[[nodiscard]] const char* GuardedFiles();

// Opens a file in the same way, without a line. Returns the descriptor, or -1 with errno; ELOOP and EINVAL
// are refusals.
[[nodiscard]] int OpenGuardedFile(const std::string& path, int flags, bool may_have_other_names = false);

// Whether the database that was opened by this name, as SQLite tells it, is the file that is open as `file`.
[[nodiscard]] bool IsOpenedFile(const char* database, int file);

// While one lives, a database that this thread opens may be reached through any links and may have other
// names.
class AnyLinks {
 public:
  AnyLinks() { ++count_; }
  ~AnyLinks() { --count_; }
  AnyLinks(const AnyLinks&) = delete;
  AnyLinks& operator=(const AnyLinks&) = delete;

  [[nodiscard]] static bool AreAllowed() { return count_ > 0; }

 private:
  static inline thread_local int count_ = 0;
};

}  // namespace db_util
