// An open file that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace platform::host {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (descriptor_ >= 0) (void)::close(descriptor_);  // whoever writes checks fsync before
  }

  [[nodiscard]] bool is_open() const { return descriptor_ >= 0; }
  [[nodiscard]] int get() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

}  // namespace platform::host
