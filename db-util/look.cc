#include "db-util/look.h"

#include <fcntl.h>

#include <algorithm>

#include "base/file_descriptor.h"
#include "db-util/execute.h"
#include "db-util/file_lock.h"
#include "db-util/guarded_files.h"
#include "db-util/hardening.h"
#include "db-util/looking_files.h"

namespace db_util {
namespace {

std::optional<pid_t> FindHolder(const std::string& path, LockedBytes bytes) {
  const base::FileDescriptor file(OpenGuardedFile(path, O_RDONLY, true));
  struct flock lock = LockOf(F_WRLCK, bytes);
  if (!file.is_open() || fcntl(file.get(), F_GETLK, &lock) < 0 || lock.l_type == F_UNLCK) return {};
  return std::max(lock.l_pid, 0);
}

// The name for SQLite with what it says about the database's files behind it.
std::string UriOf(const std::string& path) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string uri = "file:";
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    (uri += '%') += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return uri + "?readonly_shm=1";
}

}  // namespace

Status OpenToLook(const std::string& path, Database& out) {
  out.reset();
  // The index of a log that somebody uses tells what in the log counts.
  const bool is_shared = FindHolder(path + "-shm", kBytesOfIndex).has_value();
  const char* const files = is_shared ? SharedLookingFiles() : LookingFiles();
  const int flags = is_shared ? SQLITE_OPEN_READONLY | SQLITE_OPEN_URI : SQLITE_OPEN_READWRITE;
  sqlite3* db = nullptr;
  int code = SQLITE_OK;
  {
    const AnyLinks any_links;
    code = sqlite3_open_v2((is_shared ? UriOf(path) : path).c_str(), &db, flags, files);
  }
  Database opened(db);  // SQLite hands out a handle with most failures too
  if (code == SQLITE_OK) code = Harden(db);
  if (code != SQLITE_OK) return StatusOf(code);
  (void)sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);  // cannot fail
  if (!is_shared) UseAlone(db);
  out = std::move(opened);
  return Execute(db, "PRAGMA temp_store = MEMORY;");
}

std::optional<pid_t> FindUser(const std::string& path) {
  const std::optional<pid_t> user = FindHolder(path + "-shm", kBytesOfIndex);
  return user ? user : FindHolder(path, kBytesOfDatabase);
}

}  // namespace db_util
