#include "platform/host/host_shares.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/text.h"

namespace platform::host {
namespace {

constexpr std::array<std::string_view, 4> kNoShares = {"global", "homes", "printers", "print$"};

std::string_view PathOf(const SambaSection& section) {
  const std::string_view path = section.Get("path");
  return path.empty() ? section.Get("directory") : path;  // the parameter's other name
}

std::vector<std::string> SplitWords(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty()) {
    const std::string_view word = base::TakeUntil(text, " \t,");
    if (!word.empty()) words.emplace_back(word);
  }
  return words;
}

}  // namespace

Lookup HostShares::Open(const std::string& name, Share& share) {
  if (!configuration_.IsCurrent()) {
    configuration_ = {};
    const int error = ReadSambaConfiguration(path_, configuration_);
    if (error != 0) return error == ENOENT ? Lookup::kNotFound : Lookup::kFailed;
  }
  const std::string folded = FoldSambaName(name);
  const auto found = configuration_.sections.find(folded);
  if (std::find(kNoShares.begin(), kNoShares.end(), folded) != kNoShares.end()) return Lookup::kNotFound;
  if (found == configuration_.sections.end() || PathOf(found->second).empty()) {
    return configuration_.is_complete ? Lookup::kNotFound : Lookup::kFailed;
  }
  const SambaSection& section = found->second;
  share = {.name = section.name,
           .path = std::string(PathOf(section)),
           .is_replica = IsSambaYes(section.Get("plat:replica")),
           .flags = SplitWords(section.Get("plat:flags"))};
  return Lookup::kFound;
}

}  // namespace platform::host
