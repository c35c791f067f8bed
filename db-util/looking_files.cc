#include "db-util/looking_files.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string_view>

#include "base/file_descriptor.h"
#include "base/retry.h"
#include "db-util/file_lock.h"
#include "db-util/guarded_files.h"

namespace db_util {
namespace {

constexpr const char* kName = "looking";
constexpr const char* kSharedName = "looking-shared";
constexpr sqlite3_int64 kBlock = 4096;
constexpr std::size_t kMostBlocks = (std::size_t{256} << 20) / kBlock;

// A file of the disk with what SQLite has written over it.
class Content {
 public:
  explicit Content(base::FileDescriptor file)
      : file_(std::move(file)), disk_end_(file_.is_open() ? std::numeric_limits<sqlite3_int64>::max() : 0) {}

  [[nodiscard]] int file() const { return file_.get(); }

  [[nodiscard]] sqlite3_int64 size() const {
    if (own_size_) return *own_size_;
    struct stat status {};
    return fstat(file_.get(), &status) == 0 ? status.st_size : 0;
  }

  // Fills up with zeros what is behind the end.
  [[nodiscard]] bool Read(char* out, sqlite3_int64 length, sqlite3_int64 at) const {
    return InBlocks(length, at, [&](sqlite3_int64 number, sqlite3_int64 begin, std::size_t part) {
      const auto block = blocks_.find(number);
      const bool is_read = block != blocks_.end() || ReadDisk(out, part, number * kBlock + begin);
      if (block != blocks_.end()) std::memcpy(out, block->second->data() + begin, part);
      out += part;
      return is_read;
    });
  }

  [[nodiscard]] bool Write(const char* from, sqlite3_int64 length, sqlite3_int64 at) {
    own_size_ = std::max(size(), at + length);
    return InBlocks(length, at, [&](sqlite3_int64 number, sqlite3_int64 begin, std::size_t part) {
      Block* const block = BlockAt(number);
      if (block != nullptr) std::memcpy(block->data() + begin, from, part);
      from += part;
      return block != nullptr;
    });
  }

  void Cut(sqlite3_int64 size) {
    own_size_ = size;
    disk_end_ = std::min(disk_end_, size);  // what is behind it does not come back
    blocks_.erase(blocks_.lower_bound((size + kBlock - 1) / kBlock), blocks_.end());
  }

 private:
  using Block = std::array<char, kBlock>;

  // Takes a range apart: calls `use` with the number of a block, where in it the part begins, and its length.
  template <typename Use>
  static bool InBlocks(sqlite3_int64 length, sqlite3_int64 at, const Use& use) {
    for (const sqlite3_int64 end = at + length; at < end;) {
      const sqlite3_int64 part = std::min(kBlock - at % kBlock, end - at);
      if (!use(at / kBlock, at % kBlock, static_cast<std::size_t>(part))) return false;
      at += part;
    }
    return true;
  }

  [[nodiscard]] bool ReadDisk(char* out, std::size_t length, sqlite3_int64 at) const {
    std::memset(out, 0, length);
    const auto there = static_cast<std::size_t>(
        std::clamp<sqlite3_int64>(disk_end_ - at, 0, static_cast<sqlite3_int64>(length)));
    for (std::size_t done = 0; done < there;) {
      const ssize_t got = base::RetryInterrupted([&] {
        return pread(file_.get(), out + done, there - done, at + static_cast<sqlite3_int64>(done));
      });
      if (got <= 0) return got == 0;
      done += static_cast<std::size_t>(got);
    }
    return true;
  }

  Block* BlockAt(sqlite3_int64 number) {
    const auto found = blocks_.find(number);
    if (found != blocks_.end()) return found->second.get();
    auto block = std::make_unique<Block>();
    if (blocks_.size() >= kMostBlocks || !ReadDisk(block->data(), block->size(), number * kBlock)) {
      return nullptr;
    }
    return blocks_.emplace(number, std::move(block)).first->second.get();
  }

  base::FileDescriptor file_;  // none: of a file that is made
  sqlite3_int64 disk_end_;
  std::optional<sqlite3_int64> own_size_;  // since the first write
  std::map<sqlite3_int64, std::unique_ptr<Block>> blocks_;
};

// SQLite has the place for it.
struct File : sqlite3_file {
  explicit File(base::FileDescriptor file) : content(std::move(file)) {}
  Content content;
};

Content& Of(sqlite3_file* file) { return static_cast<File*>(file)->content; }

// A lock that belongs to the open file: one of the process would end when any of its files is closed.
bool SetLock(const Content& content, int type, LockedBytes bytes) {
  struct flock lock = LockOf(type, bytes);
  return fcntl(content.file(), F_OFD_SETLK, &lock) == 0;
}

int Close(sqlite3_file* file) {
  std::destroy_at(static_cast<File*>(file));
  return SQLITE_OK;
}

int Read(sqlite3_file* file, void* out, int length, sqlite3_int64 at) {
  const Content& content = Of(file);
  if (!content.Read(static_cast<char*>(out), length, at)) return SQLITE_IOERR_READ;
  return at + length <= content.size() ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

int Write(sqlite3_file* file, const void* from, int length, sqlite3_int64 at) {
  return Of(file).Write(static_cast<const char*>(from), length, at) ? SQLITE_OK : SQLITE_FULL;
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
  Of(file).Cut(size);
  return SQLITE_OK;
}

int Sync(sqlite3_file* /*file*/, int /*flags*/) { return SQLITE_OK; }

int FileSize(sqlite3_file* file, sqlite3_int64* size) {
  *size = Of(file).size();
  return SQLITE_OK;
}

// Whoever holds the pending byte is about to write and waits for the readers to go.
int Lock(sqlite3_file* file, int level) {
  if (level != SQLITE_LOCK_SHARED) return SQLITE_OK;
  const Content& content = Of(file);
  if (!SetLock(content, F_RDLCK, kPendingByte)) return SQLITE_BUSY;
  const bool is_locked = SetLock(content, F_RDLCK, kSharedBytes);
  (void)SetLock(content, F_UNLCK, kPendingByte);  // giving up cannot fail
  return is_locked ? SQLITE_OK : SQLITE_BUSY;
}

int Unlock(sqlite3_file* file, int level) {
  if (level == SQLITE_LOCK_NONE) (void)SetLock(Of(file), F_UNLCK, kSharedBytes);
  return SQLITE_OK;
}

// While somebody holds it, the journal is in use and not a killed process's.
int IsReserved(sqlite3_file* file, int* is_reserved) {
  struct flock lock = LockOf(F_WRLCK, kReservedByte);
  if (fcntl(Of(file).file(), F_OFD_GETLK, &lock) < 0) return SQLITE_IOERR_CHECKRESERVEDLOCK;
  *is_reserved = lock.l_type == F_UNLCK ? 0 : 1;
  return SQLITE_OK;
}

int Control(sqlite3_file* /*file*/, int /*operation*/, void* /*argument*/) { return SQLITE_NOTFOUND; }

int SectorSize(sqlite3_file* /*file*/) { return kBlock; }

int Characteristics(sqlite3_file* /*file*/) { return 0; }

// Without the calls of version 2 SQLite keeps the index of a log on the heap.
constexpr sqlite3_io_methods kMethods = {
    .iVersion = 1,
    .xClose = Close,
    .xRead = Read,
    .xWrite = Write,
    .xTruncate = Truncate,
    .xSync = Sync,
    .xFileSize = FileSize,
    .xLock = Lock,
    .xUnlock = Unlock,
    .xCheckReservedLock = IsReserved,
    .xFileControl = Control,
    .xSectorSize = SectorSize,
    .xDeviceCharacteristics = Characteristics,
    .xShmMap = nullptr,
    .xShmLock = nullptr,
    .xShmBarrier = nullptr,
    .xShmUnmap = nullptr,
    .xFetch = nullptr,
    .xUnfetch = nullptr,
};

int Open(sqlite3_vfs* /*looking*/, sqlite3_filename name, sqlite3_file* place, int flags, int* opened) {
  place->pMethods = nullptr;
  base::FileDescriptor file;
  if (name != nullptr) {
    const bool may_have_other_names = (flags & SQLITE_OPEN_MAIN_DB) != 0 && AnyLinks::AreAllowed();
    file = base::FileDescriptor(OpenGuardedFile(name, O_RDONLY, may_have_other_names));
    // A journal that SQLite makes is nobody's.
    if (!file.is_open() && (flags & SQLITE_OPEN_CREATE) == 0) return SQLITE_CANTOPEN;
  }
  std::construct_at(static_cast<File*>(place), std::move(file))->pMethods = &kMethods;
  if (opened != nullptr) *opened = flags;
  return SQLITE_OK;
}

int Delete(sqlite3_vfs* /*looking*/, const char* /*name*/, int /*flush_folder*/) { return SQLITE_OK; }

// SQLite opens every log for writing.
int OpenShared(sqlite3_vfs* /*shared*/, sqlite3_filename name, sqlite3_file* file, int flags, int* opened) {
  constexpr int kWriting = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  if ((flags & SQLITE_OPEN_WAL) != 0) flags = (flags & ~kWriting) | SQLITE_OPEN_READONLY;
  sqlite3_vfs* const guarded = sqlite3_vfs_find(GuardedFiles());
  return guarded->xOpen(guarded, name, file, flags, opened);
}

// As root, SQLite gives every log that it opens to the owner of its database; one that it only reads stays
// whose it is.
int ChownWhatIsWritten(int file, uid_t owner, gid_t group) {
  const int flags = fcntl(file, F_GETFL);
  return flags >= 0 && (flags & O_ACCMODE) == O_RDONLY ? 0 : fchown(file, owner, group);
}

bool RegisterShared(sqlite3_vfs& files) {
  sqlite3_vfs* const disk = sqlite3_vfs_find("unix");
  return disk != nullptr &&
         disk->xSetSystemCall(disk, "fchown", reinterpret_cast<sqlite3_syscall_ptr>(ChownWhatIsWritten)) ==
             SQLITE_OK &&
         sqlite3_vfs_register(&files, 0) == SQLITE_OK;
}

sqlite3_vfs Make(const char* name, int size, decltype(sqlite3_vfs::xOpen) open) {
  sqlite3_vfs made = *sqlite3_vfs_find(GuardedFiles());
  made.zName = name;
  made.pNext = nullptr;
  if (size > 0) made.szOsFile = size;
  made.xOpen = open;
  made.xDelete = Delete;
  return made;
}

}  // namespace

const char* LookingFiles() {
  static sqlite3_vfs files = Make(kName, sizeof(File), Open);
  static const bool ready = sqlite3_vfs_register(&files, 0) == SQLITE_OK;
  (void)ready;  // without it no database opens
  return kName;
}

const char* SharedLookingFiles() {
  static sqlite3_vfs files = Make(kSharedName, 0, OpenShared);
  static const bool ready = RegisterShared(files);
  (void)ready;  // as above
  return kSharedName;
}

}  // namespace db_util
