// A path with every link resolved.
#pragma once

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

namespace platform::host {

// Nothing when the path does not exist or cannot be resolved; errno tells why.
[[nodiscard]] inline std::optional<std::string> RealPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
  if (!resolved) return std::nullopt;
  return resolved.get();
}

}  // namespace platform::host
