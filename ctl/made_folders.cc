#include "ctl/made_folders.h"

#include <cerrno>
#include <cstring>

#include "base/path.h"
#include "file-op/file_op.h"

namespace ctl {

MadeFolders::~MadeFolders() {
  // The newest first. One that cannot be removed has nobody left to be told to.
  for (auto folder = made_.rbegin(); folder != made_.rend(); ++folder)
    (void)file_op::FSRemoveTree(*folder, 0);
}

int MadeFolders::Make(const std::string& path, std::string& error) {
  const bool existed = file_op::FSExists(path);
  if (!existed && Make(base::FolderOf(path), error) < 0) return -1;  // the root is there
  if (file_op::FSMKDir(path, false) < 0) {
    error = "cannot make the folder " + path + ": " + std::strerror(errno);
    return -1;
  }
  if (!existed) made_.push_back(path);
  return 0;
}

}  // namespace ctl
