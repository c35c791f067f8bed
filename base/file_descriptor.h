// An open file descriptor, owned.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace base {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);  // the other one closes what was open here
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  // Leaves errno as it is, because a function that fails closes its files before the caller reads errno.
  ~FileDescriptor() {
    const int error = errno;
    (void)Close();  // whoever wrote to the file has looked at the result of Close() or of a flush
    errno = error;
  }

  [[nodiscard]] bool is_open() const { return fd_ >= 0; }
  [[nodiscard]] int get() const { return fd_; }

  // Returns 0, or -1 with errno set; the descriptor is gone either way.
  [[nodiscard]] int Close() {
    const int fd = std::exchange(fd_, -1);
    return fd < 0 ? 0 : ::close(fd);
  }

 private:
  int fd_ = -1;
};

}  // namespace base
