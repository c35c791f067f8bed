#include "db-util/guarded_files.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "base/path.h"
#include "base/real_folder.h"
#include "db-util/database_files.h"
#include "logger/log_sink.h"

namespace db_util {
namespace {

constexpr const char* kName = "guarded";

sqlite3_vfs* System() {
  static sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
  return system;
}

struct OpenedDatabase {
  bool may_have_other_names = false;
  dev_t device = 0;
  ino_t inode = 0;
};

// One entry for every database of the run, by its full path.
class OpenedDatabases {
 public:
  static void Note(std::string_view path, const OpenedDatabase& database) {
    const std::lock_guard<std::mutex> guard(Lock());
    All().insert_or_assign(std::string(path), database);
  }

  static std::optional<OpenedDatabase> Find(std::string_view path) {
    const std::lock_guard<std::mutex> guard(Lock());
    const auto found = All().find(path);
    return found == All().end() ? std::nullopt : std::optional(found->second);
  }

 private:
  static std::map<std::string, OpenedDatabase, std::less<>>& All() {
    static std::map<std::string, OpenedDatabase, std::less<>> all;
    return all;
  }
  static std::mutex& Lock() {
    static std::mutex lock;
    return lock;
  }
};

template <typename Call>
bool Replace(const char* name, Call* call) {
  const auto pointer = reinterpret_cast<sqlite3_syscall_ptr>(call);
  return System()->iVersion >= 3 && System()->xSetSystemCall(System(), name, pointer) == SQLITE_OK;
}

bool IsCompanion(std::string_view name) {
  return std::any_of(kCompanionSuffixes.begin(), kCompanionSuffixes.end(), [name](std::string_view suffix) {
    return name.ends_with(suffix) && OpenedDatabases::Find(name.substr(0, name.size() - suffix.size()));
  });
}

// "<database>-mj" and nine hexadecimal digits. SQLite's own, or left by a package that was killed.
bool IsSuperJournal(std::string_view name) {
  constexpr std::string_view kMark = "-mj";
  constexpr std::size_t kDigits = 9;
  if (name.size() < kMark.size() + kDigits) return false;
  const std::string_view end = name.substr(name.size() - kMark.size() - kDigits);
  return end.starts_with(kMark) && end.find_first_not_of("0123456789ABCDEF", kMark.size()) == end.npos;
}

bool IsGuarded(std::string_view name) {
  return OpenedDatabases::Find(name) || IsCompanion(name) || IsSuperJournal(name);
}

int RefuseToOpen(const char* path) {
  logger::SystemLog("%s is not opened: no regular file, or one with other names\n", std::string(path));
  errno = EISDIR;  // after any other error SQLite tries again to open it, for reading
  return -1;
}

// Returns the descriptor; or -1 with errno, which is ELOOP or EINVAL for what is refused. Opening must not
// wait for the other end of a pipe.
int OpenRegular(const char* path, int flags, int mode, bool may_have_other_names, struct stat& status) {
  base::RealFolder real;
  const base::Errno error = base::OpenRealFolder(path, real);
  if (!error.ok()) {
    errno = error.number();
    return -1;
  }
  const int file =
      openat(real.folder.get(), base::NameOf(path).c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, mode);
  if (file < 0) {
    if (errno == ENXIO) errno = EINVAL;
    return -1;
  }
  if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
      (may_have_other_names || status.st_nlink <= 1)) {
    return file;
  }
  (void)close(file);  // nothing was written
  errno = EINVAL;
  return -1;
}

// In place of open(2), so that what SQLite uses is what was looked at.
int OpenGuarded(const char* path, int flags, int mode) {
  if (!IsGuarded(path)) return open(path, flags, mode);
  const std::optional<OpenedDatabase> database = OpenedDatabases::Find(path);
  const bool may_have_other_names = database && database->may_have_other_names;
  struct stat status {};
  const int file = OpenRegular(path, flags, mode, may_have_other_names, status);
  if (file < 0) return errno == ELOOP || errno == EINVAL ? RefuseToOpen(path) : -1;
  if (database) OpenedDatabases::Note(path, {may_have_other_names, status.st_dev, status.st_ino});
  return file;
}

// In place of unlink(2).
int UnlinkGuarded(const char* path) {
  if (!IsGuarded(path)) return unlink(path);
  base::RealFolder real;
  const base::Errno error = base::OpenRealFolder(path, real);
  if (error.ok()) return unlinkat(real.folder.get(), base::NameOf(path).c_str(), 0);
  errno = error.number();
  return -1;
}

// Whether every page of a mapping has a place on the disk. Whoever writes to one that gets none, because the
// disk is full, is killed.
bool HasPlace(void* mapped, std::size_t length, int file, off_t offset) {
  if (madvise(mapped, length, MADV_POPULATE_WRITE) == 0) return true;
  const bool is_known = errno != EINVAL;  // not before Linux 5.14
  return !is_known && (fallocate(file, 0, offset, static_cast<off_t>(length)) == 0 || errno == EOPNOTSUPP);
}

// In place of mmap(2). What is written to is the index of a log, which all users of a database share.
void* MapGuarded(void* address, std::size_t length, int protection, int flags, int file, off_t offset) {
  void* const mapped = mmap(address, length, protection, flags, file, offset);
  if (mapped == MAP_FAILED || (protection & PROT_WRITE) == 0 || HasPlace(mapped, length, file, offset)) {
    return mapped;
  }
  (void)munmap(mapped, length);  // it was made just now
  errno = ENOSPC;
  return MAP_FAILED;
}

// The system's own follows every link.
int FindFullPath(sqlite3_vfs* /*guarded*/, const char* name, int size, char* out) {
  if (AnyLinks::AreAllowed()) return System()->xFullPathname(System(), name, size, out);
  base::RealFolder real;
  const base::Errno error = base::OpenRealFolder(name, real);
  if (error.number() == ELOOP) (void)RefuseToOpen(name);
  const std::string path = real.path + "/" + base::NameOf(name);
  if (!error.ok() || path.size() >= static_cast<std::size_t>(size)) return SQLITE_CANTOPEN;
  out[path.copy(out, path.size())] = '\0';
  return SQLITE_OK;
}

int Open(sqlite3_vfs* /*guarded*/, sqlite3_filename name, sqlite3_file* file, int flags, int* opened) {
  if (name != nullptr && (flags & SQLITE_OPEN_MAIN_DB) != 0) {  // temporary files have none
    OpenedDatabases::Note(name, {.may_have_other_names = AnyLinks::AreAllowed()});
  }
  return System()->xOpen(System(), name, file, flags, opened);
}

int Delete(sqlite3_vfs* /*guarded*/, const char* name, int flush_folder) {
  if (IsCompanion(name) || IsSuperJournal(name)) return System()->xDelete(System(), name, flush_folder);
  logger::SystemLog("%s is not deleted although a journal names it\n", std::string(name));
  return SQLITE_IOERR_DELETE;
}

}  // namespace

bool IsOpenedFile(const char* database, int file) {
  struct stat status {};
  const std::optional<OpenedDatabase> opened = OpenedDatabases::Find(database);
  return opened && fstat(file, &status) == 0 && status.st_dev == opened->device &&
         status.st_ino == opened->inode;
}

int OpenGuardedFile(const std::string& path, int flags, bool may_have_other_names) {
  struct stat status {};
  return OpenRegular(path.c_str(), flags | O_CLOEXEC, 0, may_have_other_names, status);
}

const char* GuardedFiles() {
  static sqlite3_vfs guarded = [] {
    (void)sqlite3_initialize();  // a failure shows with the first database
    sqlite3_vfs made = *System();
    made.zName = kName;
    made.pNext = nullptr;
    made.xFullPathname = FindFullPath;
    made.xOpen = Open;
    made.xDelete = Delete;
    return made;
  }();
  static const bool ready = Replace("open", OpenGuarded) && Replace("unlink", UnlinkGuarded) &&
                            Replace("mmap", MapGuarded) && sqlite3_vfs_register(&guarded, 0) == SQLITE_OK;
  (void)ready;  // without it no database opens
  return kName;
}

}  // namespace db_util
