#include "db-util/log_mode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/file_descriptor.h"
#include "base/retry.h"
#include "db-util/database.h"
#include "db-util/database_files.h"
#include "db-util/guarded_files.h"
#include "db-util/query.h"

namespace db_util {
namespace {

constexpr off_t kVersionsPosition = 18;
constexpr unsigned char kWithoutLog = 1;
constexpr unsigned char kWithLog = 2;

struct Versions {
  unsigned char write = kWithoutLog;
  unsigned char read = kWithoutLog;
};

LogMode ModeOf(const Versions& versions) {
  if (versions.read == kWithLog) return LogMode::kInUse;
  return versions.write == kWithLog ? LogMode::kSuspended : LogMode::kNone;
}

using Bytes = std::array<unsigned char, 2>;

Versions VersionsIn(const Bytes& bytes) { return {.write = bytes[0], .read = bytes[1]}; }

// A file that is too short for them has the versions of one without a log.
base::Errno ReadVersions(int file, Versions& versions) {
  Bytes bytes{};
  const ssize_t length =
      base::RetryInterrupted([&] { return pread(file, bytes.data(), bytes.size(), kVersionsPosition); });
  if (length < 0) return base::Errno::Last();
  versions = length == static_cast<ssize_t>(bytes.size()) ? VersionsIn(bytes) : Versions();
  return {};
}

base::Errno WriteVersions(int file, const Versions& versions) {
  const Bytes bytes = {versions.write, versions.read};
  const ssize_t written =
      base::RetryInterrupted([&] { return pwrite(file, bytes.data(), bytes.size(), kVersionsPosition); });
  if (written < 0) return base::Errno::Last();
  return base::Errno(written == static_cast<ssize_t>(bytes.size()) ? 0 : EIO);
}

// The last one that closes a database moves its log into it.
void EmptyLog(const std::string& path) {
  Database db;
  int ignored = 0;
  if (!OpenQuietly(path, db, OpenMode::kReadWrite, Links::kTrusted).ok()) return;
  UseAlone(db.get());
  (void)QueryInt(db.get(), "SELECT count(*) FROM sqlite_master;", ignored);  // what is left beside it tells
  FlushNothing(db.get());
  db.reset();
  // A killed process leaves the index of its log, too, and whoever is alone with a database does not look at
  // it.
  struct stat status {};
  if (lstat((path + "-wal").c_str(), &status) != 0 && errno == ENOENT) (void)unlink((path + "-shm").c_str());
}

}  // namespace

LogMode LogModeOf(sqlite3* db, const char* schema) {
  sqlite3_file* file = nullptr;
  Bytes bytes{};
  if (sqlite3_file_control(db, schema, SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
      file->pMethods == nullptr ||
      file->pMethods->xRead(file, bytes.data(), static_cast<int>(bytes.size()), kVersionsPosition) !=
          SQLITE_OK) {
    return LogMode::kNone;
  }
  return ModeOf(VersionsIn(bytes));
}

LogMode SuspendLog(const std::string& path) {
  Versions versions;
  {
    const base::FileDescriptor file(OpenGuardedFile(path, O_RDONLY));
    if (!file.is_open() || !ReadVersions(file.get(), versions).ok()) return LogMode::kNone;
  }
  const bool is_newer = versions.write > kWithLog;  // to be read at most
  if (ModeOf(versions) != LogMode::kInUse || is_newer) return ModeOf(versions);
  if (HasCompanions(path)) EmptyLog(path);
  if (HasCompanions(path)) return LogMode::kInUse;
  return AddSuspendedLog(path).ok() ? LogMode::kSuspended : LogMode::kInUse;
}

base::Errno AddSuspendedLog(const std::string& path) {
  const base::FileDescriptor file(OpenGuardedFile(path, O_RDWR));
  struct stat status {};
  if (!file.is_open() || fstat(file.get(), &status) < 0) return base::Errno::Last();
  if (status.st_size == 0) return base::Errno(EINVAL);
  return WriteVersions(file.get(), {.write = kWithLog, .read = kWithoutLog});
}

void AddSuspendedLogTo(std::string& image) {
  image.at(kVersionsPosition) = static_cast<char>(kWithLog);
  image.at(kVersionsPosition + 1) = static_cast<char>(kWithoutLog);
}

base::Errno ResumeLog(const std::string& path) {
  const base::FileDescriptor file(OpenGuardedFile(path, O_RDWR));
  Versions versions;
  if (!file.is_open()) return base::Errno::Last();
  const base::Errno error = ReadVersions(file.get(), versions);
  if (!error.ok() || ModeOf(versions) != LogMode::kSuspended) return error;
  return WriteVersions(file.get(), {.write = kWithLog, .read = kWithLog});
}

}  // namespace db_util
