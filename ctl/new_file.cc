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

bool BeginsWith(const std::string& path, const std::string& begin) {
  std::string text(begin.size(), '\0');
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const base::FileDescriptor file(open(path.c_str(), kFlags));
  return !begin.empty() && file.is_open() &&
         pread(file.get(), text.data(), text.size(), 0) == static_cast<ssize_t>(begin.size()) &&
         text == begin;
}

}  // namespace

NewFile::~NewFile() {
  if (!temporary_.empty()) (void)unlink(temporary_.c_str());  // a file that nobody looks for
}

int NewFile::Check(const std::string& path, const std::string& replaceable, std::string& error) {
  if (path.empty() || path.ends_with('/')) {
    error = "'" + path + "' is no name of a file";
    return -1;
  }
  const int found = file_op::Find(file_op::At(path));
  if (found > 0 && !BeginsWith(path, replaceable)) {
    error = path + " is there already: it is not written over";
    return -1;
  }
  return found < 0 ? Fail(path, error) : 0;
}

int NewFile::Make(const std::string& path, std::string& error, const std::string& replaceable) {
  path_ = path;
  may_replace_ = !replaceable.empty();
  if (Check(path, replaceable, error) < 0) return -1;
  std::string name = base::FolderOf(path) + "/.updater-ctl.XXXXXX";
  file_ = base::FileDescriptor(mkostemp(name.data(), O_CLOEXEC));
  if (!file_.is_open()) return Fail(path, error);
  temporary_ = std::move(name);
  return 0;
}

int NewFile::Publish(std::string& error) {
  if (base::RetryInterrupted([&] { return fsync(file_.get()); }) < 0) return Fail(path_, error);
  const unsigned flags = may_replace_ ? 0 : RENAME_NOREPLACE;
  int result = renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), flags);
  // Not every file system knows the flag; Make() has looked.
  if (result < 0 && errno == EINVAL) result = std::rename(temporary_.c_str(), path_.c_str());
  if (result < 0) return Fail(path_, error);
  temporary_.clear();
  return file_op::FSSyncFolder(base::FolderOf(path_)) < 0 ? Fail(path_, error) : 0;
}

}  // namespace ctl
