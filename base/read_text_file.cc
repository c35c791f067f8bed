#include "base/read_text_file.h"

#include <fcntl.h>

#include <array>

#include "base/retry.h"

namespace base {
Errno OpenRegularFile(const std::string& path, int flags, FileDescriptor& file, struct stat& status) {
  const int all_flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags;
  FileDescriptor opened(RetryInterrupted([&] { return ::open(path.c_str(), all_flags); }));
  if (!opened.is_open() || ::fstat(opened.get(), &status) != 0) return Errno::Last();
  if (!S_ISREG(status.st_mode)) return Errno(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
  if (status.st_size > kMaxTextFileSize) return Errno(EFBIG);
  file = std::move(opened);
  return {};
}

Errno ReadAll(int file, std::string& text) {
  std::string read_text;
  std::array<char, 65536> buffer{};
  for (;;) {
    const ssize_t length = RetryInterrupted([&] { return ::read(file, buffer.data(), buffer.size()); });
    if (length < 0) return Errno::Last();
    if (length == 0) break;
    read_text.append(buffer.data(), static_cast<std::size_t>(length));
    if (read_text.size() > static_cast<std::size_t>(kMaxTextFileSize)) return Errno(EFBIG);
  }
  text = std::move(read_text);
  return {};
}

Errno ReadTextFile(const std::string& path, std::string& text) {
  FileDescriptor file;
  struct stat status {};
  const Errno error = OpenRegularFile(path, 0, file, status);
  return error.ok() ? ReadAll(file.get(), text) : error;
}

}  // namespace base
