// Whether a file is still the one that was read.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <tuple>

namespace platform::host {

// What differs when a file is no longer the one that was read: the errno of stat (a file that was missing may
// be there now), the device and the inode, the size, and the time of the last change.
using FileSignature = std::tuple<int, dev_t, ino_t, off_t, time_t, long>;

[[nodiscard]] inline FileSignature SignatureOf(const std::string& path) {
  struct stat status {};
  const int error = ::stat(path.c_str(), &status) == 0 ? 0 : errno;
  return {error, status.st_dev, status.st_ino, status.st_size, status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

}  // namespace platform::host
