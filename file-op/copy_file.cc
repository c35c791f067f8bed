#include "file-op/copy_file.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "base/file_descriptor.h"
#include "base/retry.h"
#include "base/write_all.h"
#include "file-op/file_op.h"

namespace file_op {
namespace {

// Opening must not wait for the other end of a pipe, nor give this process a controlling terminal.
constexpr int kOpenAnything = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

int LogOpenFailure(const FilePlace& place) {
  logger::ComponentErrno(kFileOpComponent, base::Errno::Last(), "CopyFile: open(%s): %s (%d)\n", place.path);
  return kFileOpFailed;
}

int LogWriteFailure(base::Errno error) {
  logger::ComponentErrno(kFileOpComponent, error, "CopyFile: write: %s (%d)\n");
  return ResultOfCopy(error);
}

base::FileDescriptor Open(const FilePlace& place, int flags, mode_t mode) {
  return base::FileDescriptor(base::RetryInterrupted(
      [&] { return openat(place.at, place.name.c_str(), flags | kOpenAnything, mode); }));
}

// Lets a folder pass, because reading it fails with a message that says what it is.
bool OpenSource(const FilePlace& place, int flags, base::FileDescriptor& file, struct stat& status) {
  file = Open(place, O_RDONLY | flags, 0);
  if (!file.is_open() || fstat(file.get(), &status) < 0) return false;
  if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) return true;
  errno = EINVAL;
  return false;
}

// Empties the target only after making sure that it is not the source. `is_regular` tells what it is.
bool OpenTarget(const FilePlace& place, const CopyOptions& options, const struct stat& source,
                base::FileDescriptor& file, bool& is_regular) {
  file = options.exclusive ? Open(place, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR)
                           : Open(place, O_WRONLY | O_CREAT, 0666);
  struct stat status {};
  if (!file.is_open() || fstat(file.get(), &status) < 0) return false;
  if (status.st_dev == source.st_dev && status.st_ino == source.st_ino) {
    errno = EINVAL;
    return false;
  }
  is_regular = S_ISREG(status.st_mode);
  return !is_regular || base::RetryInterrupted([&] { return ftruncate(file.get(), 0); }) == 0;
}

bool HasHoles(const struct stat& status) {
  constexpr blkcnt_t kBlock = 512;
  return S_ISREG(status.st_mode) && status.st_blocks * kBlock < status.st_size;
}

// Moves both files over a hole of the source, and shortens `length` to what it holds behind that. Returns
// false when nothing but a hole follows. A file system that does not tell of holes has none.
bool SkipHole(int source, int target, std::size_t& length) {
  const off_t data = lseek(source, lseek(source, 0, SEEK_CUR), SEEK_DATA);
  if (data < 0) return errno != ENXIO;
  const off_t hole = lseek(source, data, SEEK_HOLE);
  // The smaller is chosen before it is made a size_t, which does not hold 4 GiB everywhere.
  if (hole > data) length = static_cast<std::size_t>(std::min(static_cast<off_t>(length), hole - data));
  // Neither can fail, because both are regular files.
  (void)lseek(source, data, SEEK_SET);
  (void)lseek(target, data, SEEK_SET);
  return true;
}

// Makes the hole at the end of the source.
int CopySize(int source, int target) {
  struct stat status {};
  const bool ok = fstat(source, &status) == 0 &&
                  base::RetryInterrupted([&] { return ftruncate(target, status.st_size); }) == 0;
  return ok ? 0 : LogWriteFailure(base::Errno::Last());
}

// Part of the buffer, which the processor's cache holds: the whole would go to memory and back.
constexpr std::size_t kBlock = std::size_t{256} * 1024;

int CopyBytes(int source, int target, bool has_holes) {
  // The buffer is left unfilled, so that a small file touches only the pages that it needs.
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[kCopyBufferSize]);
  if (!buffer) {
    logger::ComponentErrno(kFileOpComponent, base::Errno(ENOMEM), "FSCopy: malloc(%d): %s (%d)\n",
                           static_cast<int>(kCopyBufferSize));
    return kFileOpFailed;
  }
  for (;;) {
    std::size_t wanted = kBlock;
    if (has_holes && !SkipHole(source, target, wanted)) return CopySize(source, target);
    const ssize_t length = base::RetryInterrupted([&] { return read(source, buffer.get(), wanted); });
    if (length < 0) {
      logger::ComponentErrno(kFileOpComponent, base::Errno::Last(), "CopyFile: read: %s (%d)\n");
      return kFileOpFailed;
    }
    if (length == 0) return 0;
    const base::Errno error = base::WriteAll(target, {buffer.get(), static_cast<std::size_t>(length)});
    if (!error.ok()) return LogWriteFailure(error);
  }
}

// Shares the blocks at once where the file system can. Why it cannot is not looked at, because copying the
// bytes then either works or fails with a message of its own.
int CopyContent(int source, int target, bool has_holes) {
  return ioctl(target, FICLONE, source) == 0 ? 0 : CopyBytes(source, target, has_holes);
}

}  // namespace

int ResultOfCopy(base::Errno error) {
  return error.number() == ENOSPC || error.number() == EDQUOT ? kCopyDiskFull : kFileOpFailed;
}

int CopyFile(const FilePlace& source, const FilePlace& target, const CopyOptions& options) {
  base::FileDescriptor from;
  struct stat status {};
  if (!OpenSource(source, options.source_flags, from, status)) return LogOpenFailure(source);
  base::FileDescriptor to;
  bool to_regular = false;
  if (!OpenTarget(target, options, status, to, to_regular)) return LogOpenFailure(target);
  const int result = CopyContent(from.get(), to.get(), to_regular && HasHoles(status));
  if (result < 0) return result;
  if (options.exclusive && ApplyOwnerAndMode(to.get(), status) < 0) {
    logger::ComponentErrno(kFileOpComponent, base::Errno::Last(), "CopyFile: keep owner of %s: %s (%d)\n",
                           target.path);
    return kFileOpFailed;
  }
  // Some file systems tell only here that a write failed.
  return to.Close() == 0 ? 0 : LogWriteFailure(base::Errno::Last());
}

}  // namespace file_op
