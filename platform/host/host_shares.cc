#include "platform/host/host_shares.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/text.h"
#include "platform/host/samba_names.h"

namespace platform::host {
namespace {

// How many files of the configuration a call may look at, on average: with a file for each share, looking at
// all of them for each share would take time with the square of their number. A change then shows some calls
// later.
constexpr std::size_t kFilesPerCall = 16;

constexpr std::array<std::string_view, 3> kNoShares = {"homes", "printers", "print$"};

// The file server takes all quotes off both ends, unless the text then still holds one.
std::string_view Unquote(std::string_view text) {
  const std::size_t begin = text.find_first_not_of('"');
  if (begin == std::string_view::npos) return {};
  const std::string_view inner = text.substr(begin, text.find_last_not_of('"') - begin + 1);
  return inner.find('"') == std::string_view::npos ? inner : text;
}

std::vector<std::string> SplitWords(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty()) {
    const std::string_view word = base::TakeUntil(text, " \t,");
    if (!word.empty()) words.emplace_back(word);
  }
  return words;
}

// A link that leads nowhere, say to a volume that is not mounted, does not mean that there are no shares.
bool IsThere(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

}  // namespace

bool HostShares::IsCurrent() {
  if (++unchecked_ * kFilesPerCall < configuration_.files.size()) return true;
  unchecked_ = 0;
  return configuration_.IsCurrent();
}

Lookup HostShares::Open(const std::string& name, Share& share) {
  if (!IsCurrent()) {
    configuration_ = {};
    const base::Errno error = ReadSambaConfiguration(path_, configuration_);
    const bool is_missing = error == base::Errno(ENOENT) && !IsThere(path_);
    if (!error.ok()) return is_missing ? Lookup::kNotFound : Lookup::kFailed;
  }
  const std::string folded = FoldShareName(name);
  const auto found = configuration_.sections.find(folded);
  if (std::find(kNoShares.begin(), kNoShares.end(), folded) != kNoShares.end()) return Lookup::kNotFound;
  if (found == configuration_.sections.end() || Unquote(found->second.path).empty()) {
    return configuration_.is_complete ? Lookup::kNotFound : Lookup::kFailed;
  }
  const SambaSection& section = found->second;
  share = {.name = section.name,
           .path = std::string(Unquote(section.path)),
           .is_replica = IsSambaYes(Unquote(section.Option("plat:replica"))),
           .flags = SplitWords(Unquote(section.Option("plat:flags")))};
  return Lookup::kFound;
}

}  // namespace platform::host
