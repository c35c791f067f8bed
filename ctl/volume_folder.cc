#include "ctl/volume_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "base/errno.h"
#include "ctl/refuse.h"
#include "logger/check.h"
#include "package/layout.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;

int RefuseBecauseOf(std::string& error, const std::string& path, base::Errno reason) {
  return Refuse(error, "cannot use " + path + ": " + reason.Text());
}

// What to say of a folder in which no package is. It may be the one that people mistake for the volume.
std::string NoPackage(const std::string& folder) {
  const package::VolumePaths nowhere("");
  const std::string& name = nowhere.package_folder;
  const std::string reason = folder + " holds no " + nowhere.live.sync_folder.substr(1);
  const std::size_t package = folder.find(name);
  return package == std::string::npos
             ? reason
             : reason + "; give the folder that holds " + name.substr(1) + ": " + folder.substr(0, package);
}

// What the path is, links not followed.
int CheckType(const std::string& path, mode_t type, const char* name, std::string& error) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return RefuseBecauseOf(error, path, base::Errno::Last());
  return (status.st_mode & S_IFMT) == type ? 0 : Refuse(error, path + " is no " + name);
}

int CheckAccess(const std::string& path, int mode, std::string& error) {
  return access(path.c_str(), mode) == 0 ? 0 : RefuseBecauseOf(error, path, base::Errno::Last());
}

}  // namespace

int AbsolutePath(const std::string& argument, std::string& path, std::string& error) {
  std::error_code failure;
  path = fs::absolute(argument, failure).lexically_normal().string();
  if (argument.empty() || failure) return Refuse(error, "'" + argument + "' is no path of a folder");
  if (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return 0;
}

int FindVolume(const std::string& argument, std::string& volume, std::string& error) {
  if (AbsolutePath(argument, volume, error) < 0) return -1;
  std::error_code failure;
  volume = fs::canonical(argument, failure).string();
  if (failure) return RefuseBecauseOf(error, "'" + argument + "'", base::Errno(failure.value()));
  const package::VolumePaths paths(volume);
  if (CheckType(volume, S_IFDIR, "folder", error) < 0) return -1;
  const fs::path sync_folder = fs::canonical(paths.live.sync_folder, failure);
  if (failure == std::errc::no_such_file_or_directory) return Refuse(error, NoPackage(volume));
  if (failure) return RefuseBecauseOf(error, paths.live.sync_folder, base::Errno(failure.value()));
  // Behind a link there may be the very databases of which this should be a copy.
  if (sync_folder != paths.live.sync_folder) {
    return Refuse(error, paths.live.sync_folder + " is reached through a link to " + sync_folder.string());
  }
  return logger::ToResult(CheckType(paths.live.data, S_IFREG, "file", error) == 0 &&
                          CheckAccess(paths.live.sync_folder, R_OK | W_OK | X_OK, error) == 0 &&
                          CheckAccess(paths.live.data, R_OK | W_OK, error) == 0);
}

int FindStateFolder(const std::string& argument, const std::string& volume, std::string& path,
                    std::string& error) {
  if (AbsolutePath(argument, path, error) < 0) return -1;
  std::error_code failure;
  const fs::path resolved = fs::weakly_canonical(path, failure);
  if (failure) return RefuseBecauseOf(error, path, base::Errno(failure.value()));
  if (resolved == "/" ||
      (resolved.string() + "/").starts_with(package::VolumePaths(volume).package_folder + "/")) {
    return Refuse(error, path + " cannot be used for a run: that is the root folder or the package's own");
  }
  path = resolved.string();
  return 0;
}

int LockFolder(const std::string& folder, base::FileDescriptor& lock, std::string& error) {
  lock = base::FileDescriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (lock.is_open() && flock(lock.get(), LOCK_EX | LOCK_NB) == 0) return 0;
  if (lock.is_open() && errno == EWOULDBLOCK) {
    return Refuse(error, "another updater-ctl is at work in " + folder);
  }
  return RefuseBecauseOf(error, folder, base::Errno::Last());
}

}  // namespace ctl
