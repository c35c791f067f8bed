// How the uuid of a file system is written.
#pragma once

#include <string>

#include "platform/volumes.h"

namespace platform {

// The sixteen bytes in lower case, in groups of four, two, two, two and six.
[[nodiscard]] inline std::string PrintUuid(const FileSystemUuid& uuid) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < uuid.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kDigits[uuid.at(i) >> 4U];
    text += kDigits[uuid.at(i) & 0xFU];
  }
  return text;
}

}  // namespace platform
