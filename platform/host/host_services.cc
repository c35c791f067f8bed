#include "platform/host/host_services.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "platform/host/nsswitch.h"
#include "platform/host/samba_configuration.h"

namespace platform::host {
namespace {

// What stands in brackets is an action, no source.
bool NamesSource(const SourceLine& words, std::initializer_list<std::string_view> wanted) {
  bool in_brackets = false;
  for (const std::string& word : words) {
    if (word.starts_with('[')) in_brackets = true;
    if (!in_brackets && std::find(wanted.begin(), wanted.end(), word) != wanted.end()) return true;
    if (word.ends_with(']')) in_brackets = false;
  }
  return false;
}

bool AccountsMayComeFrom(const std::string& nsswitch, std::initializer_list<std::string_view> wanted) {
  std::vector<SourceLine> lines;
  if (!ReadSources(nsswitch, "passwd", lines)) return true;
  return std::any_of(lines.begin(), lines.end(),
                     [&](const SourceLine& words) { return NamesSource(words, wanted); });
}

}  // namespace

bool HostServices::IsLdapEnabled() { return AccountsMayComeFrom(nsswitch_, {"ldap", "sss"}); }

bool HostServices::IsDomainEnabled() { return AccountsMayComeFrom(nsswitch_, {"winbind"}); }

bool HostServices::IsUserHomeEnabled() {
  SambaConfiguration configuration;
  return !ReadSambaConfiguration(samba_, configuration).ok() || !configuration.is_complete ||
         configuration.sections.contains("homes");
}

}  // namespace platform::host
