// Taking a path apart. Slashes at its end do not count.
#pragma once

#include <string>
#include <string_view>

namespace base {

// The folder that a path is in: "." for a name alone, "/" for the root itself.
[[nodiscard]] inline std::string FolderOf(std::string_view path) {
  const std::string_view plain = path.substr(0, path.find_last_not_of('/') + 1);
  const std::size_t slash = plain.rfind('/');
  if (slash == 0 || slash == std::string_view::npos) return path.starts_with('/') ? "/" : ".";
  return std::string(plain.substr(0, slash));
}

// The name that a path has in that folder: empty for the root itself.
[[nodiscard]] inline std::string NameOf(std::string_view path) {
  const std::string_view plain = path.substr(0, path.find_last_not_of('/') + 1);
  return std::string(plain.substr(plain.rfind('/') + 1));
}

}  // namespace base
