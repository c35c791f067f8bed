#include "updater/intent_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/errno.h"
#include "base/path.h"
#include "base/read_text_file.h"
#include "base/retry.h"
#include "base/write_all.h"
#include "db-util/guarded_files.h"
#include "file-op/file_op.h"
#include "logger/log_sink.h"

namespace updater {
namespace {

using file_op::Folder;
using package::VolumePaths;

base::Errno Flush(int fd) {
  return base::Errno::Of(base::RetryInterrupted([&] { return fsync(fd); }));
}

base::Errno WriteNewFile(const Folder& folder, const std::string& name, const std::string& text) {
  if (text.size() > static_cast<std::size_t>(base::kMaxTextFileSize)) return base::Errno(EFBIG);
  // A killed run may have left one.
  if (file_op::RemoveTree(folder.In(name)) < 0) return base::Errno::Last();
  const base::FileDescriptor file(base::RetryInterrupted([&] {
    return openat(folder.fd(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                  S_IRUSR | S_IWUSR);
  }));
  if (!file.is_open()) return base::Errno::Last();
  const base::Errno error = base::WriteAll(file.get(), text);
  return error.ok() ? Flush(file.get()) : error;
}

base::Errno WriteText(const VolumePaths& paths, const std::string& text) {
  Folder above;
  Folder folder;
  std::string name;
  if (file_op::OpenAround(paths.intent, above, name) < 0 || folder.Open(above.In(".")) < 0) {
    return base::Errno::Last();
  }
  const std::string new_name = name + ".new";
  base::Errno error = WriteNewFile(folder, new_name, text);
  if (error.ok()) {
    error = base::Errno::Of(renameat(folder.fd(), new_name.c_str(), folder.fd(), name.c_str()));
    if (error.ok()) error = Flush(folder.fd());
    // Nothing was moved yet, so nothing has to be finished.
    if (!error.ok()) (void)unlinkat(folder.fd(), name.c_str(), 0);
  }
  if (!error.ok()) (void)unlinkat(folder.fd(), new_name.c_str(), 0);  // the next run removes what stays
  return error;
}

base::Errno AppendText(const VolumePaths& paths, const std::string& text) {
  // The folder belongs to the service, which may put a link at any name.
  const base::FileDescriptor file(
      base::RetryInterrupted([&] { return db_util::OpenGuardedFile(paths.intent, O_WRONLY | O_APPEND); }));
  struct stat status {};
  if (!file.is_open() || fstat(file.get(), &status) < 0) return base::Errno::Last();
  if (status.st_size + static_cast<off_t>(text.size()) > base::kMaxTextFileSize) return base::Errno(EFBIG);
  base::Errno error = base::WriteAll(file.get(), text);
  if (error.ok()) error = Flush(file.get());
  if (!error.ok() && ftruncate(file.get(), status.st_size) < 0) return base::Errno::Last();
  return error;
}

bool CheckWritten(const VolumePaths& paths, base::Errno error) {
  return logger::CheckOrLog(error, "cannot write %s: %s (%d)\n", paths.intent, error.Text(), error.number());
}

// What a path that is not this program's file leads to, as opposed to a disk that does not answer.
bool IsNoIntent(base::Errno error) {
  constexpr std::array kReasons = {ELOOP, EISDIR, EINVAL, ENXIO, EFBIG};
  return std::find(kReasons.begin(), kReasons.end(), error.number()) != kReasons.end();
}

}  // namespace

bool WriteIntent(const VolumePaths& paths, const Intent& intent) {
  return CheckWritten(paths, WriteText(paths, FormatIntent(intent)));
}

bool AppendIntent(const VolumePaths& paths, const Intent& intent) {
  return CheckWritten(paths, AppendText(paths, FormatIntent(intent)));
}

bool ReadIntent(const VolumePaths& paths, IntentFound& found, Intent& intent) {
  base::FileDescriptor file;
  struct stat status {};
  std::string text;
  base::Errno error = base::OpenRegularFile(paths.intent, O_NOFOLLOW, file, status);
  if (error.number() == ENOENT || error.number() == ENOTDIR) {
    found = IntentFound::kNone;
    return true;
  }
  if (error.ok()) error = base::ReadAll(file.get(), text);
  if (!error.ok() && !IsNoIntent(error)) {
    return logger::CheckOrLog(error, "cannot read %s: %s (%d)\n", paths.intent, error.Text(), error.number());
  }
  std::optional<Intent> parsed = error.ok() ? ParseIntent(text) : std::nullopt;
  found = parsed ? IntentFound::kValid : IntentFound::kUnusable;
  if (parsed) intent = *std::move(parsed);
  return true;
}

void RemoveIntent(const VolumePaths& paths) {
  if (logger::CheckErrno(unlink(paths.intent.c_str()), "cannot remove %s: %s (%d)\n", paths.intent)) {
    (void)file_op::FSSyncFolder(paths.live.sync_folder);  // one that comes back finds everything done
  }
}

void SetIntentAside(const VolumePaths& paths) {
  const std::string target = paths.intent + ".set-aside";
  const bool moved =
      file_op::FSRemoveTree(target, 0) == 0 && std::rename(paths.intent.c_str(), target.c_str()) == 0;
  logger::SystemLog("%s is damaged or belongs to other databases and is %s\n", paths.intent,
                    moved ? "set aside as " + target : "not looked at");
}

}  // namespace updater
