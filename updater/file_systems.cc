#include "updater/file_systems.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "base/path.h"
#include "base/retry.h"
#include "logger/log_sink.h"

namespace updater {

void FileSystems::Open(const package::VolumePaths& paths) {
  for (const std::string& folder : {paths.volume, paths.live.sync_folder, base::FolderOf(paths.live.client),
                                    paths.live.view_folder, paths.live.file_folder}) {
    base::FileDescriptor file(base::RetryInterrupted(
        [&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC); }));
    struct stat status {};
    base::Errno error;
    if (!file.is_open() || fstat(file.get(), &status) < 0) error = base::Errno::Last();
    if (error.number() == ENOENT || error.number() == ENOTDIR) continue;  // no such part
    const bool is_known = std::any_of(file_systems_.begin(), file_systems_.end(),
                                      [&](const FileSystem& other) { return other.device == status.st_dev; });
    if (!is_known || !error.ok()) file_systems_.push_back({folder, std::move(file), status.st_dev, error});
  }
}

bool FileSystems::Flush() const {
  return std::all_of(file_systems_.begin(), file_systems_.end(), [](const FileSystem& system) {
    base::Errno error = system.error;
    if (error.ok())
      error = base::Errno::Of(base::RetryInterrupted([&] { return syncfs(system.file.get()); }));
    return logger::CheckOrLog(error, "cannot flush file system of %s: %s (%d)\n", system.folder, error.Text(),
                              error.number());
  });
}

}  // namespace updater
