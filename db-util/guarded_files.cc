#include "db-util/guarded_files.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <string>
#include <string_view>

#include "db-util/database_files.h"
#include "logger/log_sink.h"

namespace db_util {
namespace {

constexpr const char* kName = "guarded";

sqlite3_vfs* System() {
  static sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
  return system;
}

// One entry for every database of the run.
std::set<std::string, std::less<>>& OpenedDatabases() {
  static std::set<std::string, std::less<>> opened;
  return opened;
}

bool IsCompanion(std::string_view name) {
  return std::any_of(kCompanionSuffixes.begin(), kCompanionSuffixes.end(), [name](std::string_view suffix) {
    return name.ends_with(suffix) && OpenedDatabases().contains(name.substr(0, name.size() - suffix.size()));
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

bool IsPlanted(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) < 0) return errno != ENOENT;
  return !S_ISREG(status.st_mode) || status.st_nlink > 1;
}

// SQLite opens the index of a write-ahead log by itself.
std::string IndexOf(const std::string& log) {
  return log.substr(0, log.size() - kCompanionSuffixes[0].size()) + std::string(kCompanionSuffixes[1]);
}

int Open(sqlite3_vfs* /*guarded*/, sqlite3_filename name, sqlite3_file* file, int flags, int* opened) {
  constexpr int kJournals = SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_SUPER_JOURNAL | SQLITE_OPEN_WAL;
  const bool has_name = name != nullptr;  // temporary files have none
  if (has_name && (flags & SQLITE_OPEN_MAIN_DB) != 0) OpenedDatabases().emplace(name);
  if (has_name && (flags & kJournals) != 0) {
    const bool is_log = (flags & SQLITE_OPEN_WAL) != 0;
    if (IsPlanted(name) || (is_log && IsPlanted(IndexOf(name)))) {
      logger::SystemLog("%s%s is not opened: no regular file, or one with other names\n", std::string(name),
                        std::string(is_log ? " with its index" : ""));
      file->pMethods = nullptr;  // tells SQLite that there is nothing to close
      return SQLITE_CANTOPEN;
    }
  }
  return System()->xOpen(System(), name, file, flags, opened);
}

int Delete(sqlite3_vfs* /*guarded*/, const char* name, int flush_folder) {
  if (IsCompanion(name) || IsSuperJournal(name)) return System()->xDelete(System(), name, flush_folder);
  logger::SystemLog("%s is not deleted although a journal names it\n", std::string(name));
  return SQLITE_IOERR_DELETE;
}

}  // namespace

const char* GuardedFiles() {
  static sqlite3_vfs guarded = [] {
    (void)sqlite3_initialize();  // a failure shows with the first database
    sqlite3_vfs made = *System();
    made.zName = kName;
    made.pNext = nullptr;
    made.xOpen = Open;
    made.xDelete = Delete;
    return made;
  }();
  static const int registered = sqlite3_vfs_register(&guarded, 0);
  (void)registered;  // without it no database opens
  return kName;
}

}  // namespace db_util
