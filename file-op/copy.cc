#include <unistd.h>

#include "file-op/copy_file.h"
#include "file-op/file_op.h"

namespace file_op {

int FSCopy(const std::string& source, const std::string& target, int flag) {
  const int result = CopyFile(At(source), At(target), {.exclusive = false});
  if (result < 0 || flag == 0) return result;
  return unlink(source.c_str());
}

int CopyKeepingOwner(const FilePlace& source, const FilePlace& target) {
  return CopyFile(source, target, {});
}

}  // namespace file_op
