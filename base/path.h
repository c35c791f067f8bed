// Taking a path apart.
#pragma once

#include <string>

namespace base {

// The folder that a path without a trailing slash is in: "." for a name alone.
[[nodiscard]] inline std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace base
