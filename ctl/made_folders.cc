#include "ctl/made_folders.h"

#include "base/errno.h"
#include "base/path.h"
#include "ctl/volume_folder.h"
#include "file-op/file_op.h"

namespace ctl {

MadeFolders::~MadeFolders() {
  // The newest comes first. A folder that cannot be removed stays, because the command has reported already.
  for (auto folder = made_.rbegin(); folder != made_.rend(); ++folder)
    (void)file_op::FSRemoveTree(*folder, 0);
}

int MadeFolders::Make(const std::string& path, std::string& error) {
  const bool existed = file_op::FSExists(path);
  if (!existed && Make(base::FolderOf(path), error) < 0) return -1;  // the root is there
  file_op::Folder above;
  file_op::Folder made;
  std::string name;
  // FSMKDir does not tell who made the folder, and one that somebody else has made meanwhile must not be
  // removed.
  if (!existed && file_op::OpenAround(path, above, name) == 0 &&
      made.MakeShared(above, name, file_op::kFolderMode) == 0) {
    made_.push_back(path);
    return 0;
  }
  if (file_op::FSMKDir(path, false) == 0) return 0;
  error = "cannot make the folder " + path + ": " + base::Errno::Last().Text();
  return -1;
}

int MadeFolders::MakeLocked(const std::string& path, base::FileDescriptor& lock, std::string& error) {
  if (Make(path, error) < 0) return -1;
  if (LockFolder(path, lock, error) == 0) return 0;
  Keep();
  return -1;
}

}  // namespace ctl
