#include "ctl/new_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "base/errno.h"
#include "base/path.h"
#include "base/retry.h"
#include "file-op/file_op.h"

namespace ctl {
namespace {

int Fail(const std::string& path, std::string& error) {
  error = "cannot write " + path + ": " + base::Errno::Last().Text();
  return -1;
}

}  // namespace

NewFile::~NewFile() {
  if (!temporary_.empty()) (void)unlink(temporary_.c_str());  // a file that nobody looks for
}

int NewFile::Make(const std::string& path, std::string& error) {
  path_ = path;
  if (path.empty() || path.ends_with('/')) {
    error = "'" + path + "' is no name of a file";
    return -1;
  }
  const int found = file_op::Find(file_op::At(path));
  if (found > 0) error = path + " is there already: a save is never written over something";
  if (found != 0) return found > 0 ? -1 : Fail(path, error);
  std::string name = base::FolderOf(path) + "/.updater-ctl.XXXXXX";
  file_ = base::FileDescriptor(mkostemp(name.data(), O_CLOEXEC));
  if (!file_.is_open()) return Fail(path, error);
  temporary_ = std::move(name);
  return 0;
}

int NewFile::Publish(std::string& error) {
  if (base::RetryInterrupted([&] { return fsync(file_.get()); }) < 0) return Fail(path_, error);
  int result = renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE);
  // Not every file system knows the flag; Make() has looked.
  if (result < 0 && errno == EINVAL) result = std::rename(temporary_.c_str(), path_.c_str());
  if (result < 0) return Fail(path_, error);
  temporary_.clear();
  return file_op::FSSyncFolder(base::FolderOf(path_)) < 0 ? Fail(path_, error) : 0;
}

}  // namespace ctl
