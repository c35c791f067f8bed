#include <fcntl.h>
#include <unistd.h>

#include "base/file_descriptor.h"
#include "base/retry.h"
#include "file-op/copy_file.h"
#include "file-op/file_op.h"

namespace file_op {

int FSCopy(const std::string& source, const std::string& target, int flag) {
  const int result = CopyFile({AT_FDCWD, source, source}, {AT_FDCWD, target, target}, {});
  if (result < 0 || flag == 0) return result;
  return unlink(source.c_str());
}

int FSCopyKeepingOwner(const std::string& source, const std::string& target) {
  return CopyFile({AT_FDCWD, source, source}, {AT_FDCWD, target, target},
                  {.mode = kPrivateMode, .keep_owner = true});
}

int CopyOwnerAndMode(const std::string& source, const std::string& target) {
  struct stat status {};
  if (stat(source.c_str(), &status) < 0) return -1;
  const base::FileDescriptor file(base::RetryInterrupted(
      [&] { return open(target.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
  return file.is_open() ? ApplyOwnerAndMode(file.get(), status) : -1;
}

}  // namespace file_op
