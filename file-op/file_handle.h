// An open file descriptor, owned.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace file_op {

class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(int fd) : fd_(fd) {}
  FileHandle(FileHandle&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileHandle& operator=(FileHandle&& other) noexcept {
    std::swap(fd_, other.fd_);  // the other one closes what this one had
    return *this;
  }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  // Keeps errno: it may be on its way to a caller.
  ~FileHandle() {
    const int error = errno;
    (void)Close();  // whoever wrote to the file has closed it and looked at the result
    errno = error;
  }

  [[nodiscard]] bool IsOpen() const { return fd_ >= 0; }
  [[nodiscard]] int get() const { return fd_; }

  // Returns 0, or -1 with errno set; the descriptor is gone either way.
  [[nodiscard]] int Close() {
    const int fd = std::exchange(fd_, -1);
    return fd < 0 ? 0 : close(fd);
  }

 private:
  int fd_ = -1;
};

// Repeats a system call that a signal interrupted. `call` returns a negative value and sets errno on failure.
template <typename Call>
[[nodiscard]] auto RetryInterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace file_op
