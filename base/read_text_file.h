// Reading small text files whole.
#pragma once

#include <sys/stat.h>

#include <string>

#include "base/errno.h"
#include "base/file_descriptor.h"

namespace base {

inline constexpr off_t kMaxTextFileSize = off_t{16} << 20;

// Opens a regular file for reading, without ever waiting for it: a folder at the path is EISDIR, anything
// else (a pipe, a device) EINVAL, one bigger than kMaxTextFileSize EFBIG. `flags` are added to open's.
[[nodiscard]] Errno OpenRegularFile(const std::string& path, int flags, FileDescriptor& file,
                                    struct stat& status);

// Everything from where the file stands to its end; EFBIG as above. `text` is replaced on success only.
[[nodiscard]] Errno ReadAll(int file, std::string& text);

// Both at once; links are followed.
[[nodiscard]] Errno ReadTextFile(const std::string& path, std::string& text);

}  // namespace base
