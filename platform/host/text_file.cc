#include "platform/host/text_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "base/file_descriptor.h"
#include "base/path.h"
#include "base/read_text_file.h"
#include "base/real_folder.h"
#include "base/retry.h"
#include "base/write_all.h"
#include "platform/host/real_path.h"

namespace platform::host {
namespace {

constexpr mode_t kPermissions = 07777;
constexpr std::string_view kNewText = ".new-text.";
constexpr std::string_view kRandomPart = "XXXXXX";

// Finds the file that `path` stands for: itself, or what it links to. That is reached through its open
// folder, because whoever made the link may lead the way to it somewhere else by now.
base::Errno FindTarget(const std::string& path, base::RealFolder& way, std::string& target) {
  struct stat link {};
  target = path;
  if (::lstat(path.c_str(), &link) != 0) return errno == ENOENT ? base::Errno() : base::Errno::Last();
  if (!S_ISLNK(link.st_mode)) return {};
  const std::optional<std::string> resolved = RealPath(path);
  if (!resolved) return base::Errno::Last();
  if (const base::Errno error = base::OpenRealFolder(*resolved, way); !error.ok()) return error;
  target = "/proc/self/fd/" + std::to_string(way.folder.get()) + "/" + base::NameOf(*resolved);
  struct stat status {};
  if (::lstat(target.c_str(), &status) != 0) return base::Errno::Last();
  return base::Errno(link.st_uid != ::geteuid() && link.st_uid != status.st_uid ? ELOOP : 0);
}

// The owner is set before the mode, because a change of owner takes mode bits away.
base::Errno FillNewFile(int file, const struct stat& status, std::string_view text) {
  struct stat made {};
  if (::fstat(file, &made) != 0) return base::Errno::Last();
  const bool is_owned = made.st_uid == status.st_uid && made.st_gid == status.st_gid;
  if ((!is_owned && ::fchown(file, status.st_uid, status.st_gid) != 0) ||
      ::fchmod(file, status.st_mode & kPermissions) != 0) {
    return base::Errno::Last();
  }
  if (const base::Errno error = base::WriteAll(file, text); !error.ok()) return error;
  return base::Errno::Of(base::RetryInterrupted([&] { return ::fsync(file); }));
}

// Removes what killed writers have left. The file of a living writer is locked.
void RemoveLeftovers(const std::string& folder) {
  std::error_code error;  // what cannot be removed now is removed by a later edit
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!name.starts_with(kNewText) || name.size() != kNewText.size() + kRandomPart.size()) continue;
    base::FileDescriptor file;
    struct stat status {};
    if (!base::OpenRegularFile(entry->path().string(), O_NOFOLLOW, file, status).ok()) continue;
    if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0) (void)::unlink(entry->path().c_str());
  }
}

// Makes an empty file and locks it. Until it is locked somebody may take it for a leftover.
base::Errno MakeNewFile(const std::string& folder, std::string& path, base::FileDescriptor& file) {
  struct stat status {};
  do {
    path = folder + '/' + std::string(kNewText) + std::string(kRandomPart);
    file = base::FileDescriptor(::mkostemp(path.data(), O_CLOEXEC));  // opens nothing that is there already
    if (!file.is_open()) return base::Errno::Last();
    // A file system without locks lets nobody remove leftovers either.
    (void)base::RetryInterrupted([&] { return ::flock(file.get(), LOCK_EX); });
    if (::fstat(file.get(), &status) != 0) return base::Errno::Last();
  } while (status.st_nlink == 0);
  return {};
}

base::Errno ReplaceFile(const std::string& path, const struct stat& status, std::string_view text) {
  const std::string folder = base::FolderOf(path);
  std::string temporary;
  base::FileDescriptor file;
  base::Errno error = MakeNewFile(folder, temporary, file);
  if (!error.ok()) return error;
  error = FillNewFile(file.get(), status, text);
  if (error.ok() && std::rename(temporary.c_str(), path.c_str()) != 0) error = base::Errno::Last();
  if (!error.ok()) {
    (void)::unlink(temporary.c_str());  // the next edit removes what stays
    return error;
  }
  // The new text stands from here on; a folder that cannot be flushed only leaves open which of the two
  // whole texts survives a crash.
  const base::FileDescriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.is_open()) (void)::fsync(directory.get());
  return {};
}

}  // namespace

base::Errno EditTextFile(const std::string& path, const EditOptions& options,
                         const std::function<void(std::string&)>& edit) {
  base::RealFolder way;
  std::string target;
  if (const base::Errno error = FindTarget(path, way, target); !error.ok()) return error;
  RemoveLeftovers(base::FolderOf(target));

  base::FileDescriptor file;
  struct stat status {};
  std::string old_text;
  base::Errno error = base::OpenRegularFile(target, O_NOFOLLOW, file, status);
  const bool is_new = error == base::Errno(ENOENT);
  if (is_new) {
    status.st_uid = ::geteuid();
    status.st_gid = ::getegid();
    error = {};
  } else if (error.ok()) {
    error = base::ReadAll(file.get(), old_text);
  }
  if (!error.ok()) return error;

  std::string text = old_text;
  edit(text);
  const mode_t mode = is_new || !options.keep_mode ? options.mode : status.st_mode & kPermissions;
  if (!is_new && text == old_text && mode == (status.st_mode & kPermissions)) return {};
  status.st_mode = mode;
  return ReplaceFile(target, status, text);
}

}  // namespace platform::host
