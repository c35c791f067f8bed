// A checksum against accidents, not against people.
#pragma once

#include <cstdint>
#include <string_view>

namespace base {

// FNV-1a, 64 bits.
[[nodiscard]] constexpr std::uint64_t Fnv1a(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char character : text) hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001b3U;
  return hash;
}

}  // namespace base
