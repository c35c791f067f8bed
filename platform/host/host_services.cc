#include "platform/host/host_services.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "base/read_text_file.h"
#include "base/text.h"
#include "platform/host/samba_configuration.h"

namespace platform::host {
namespace {

// Looks through the words behind the colon of "passwd: files [NOTFOUND=return] sss". What stands in brackets
// is an action, no source.
bool NamesSource(std::string_view sources, std::initializer_list<std::string_view> wanted) {
  bool in_brackets = false;
  while (!sources.empty()) {
    const std::string_view word = base::TakeUntil(sources, base::kBlanks);
    if (word.starts_with('[')) in_brackets = true;
    if (!in_brackets && std::find(wanted.begin(), wanted.end(), word) != wanted.end()) return true;
    if (word.ends_with(']')) in_brackets = false;
  }
  return false;
}

bool AccountsMayComeFrom(const std::string& nsswitch, std::initializer_list<std::string_view> wanted) {
  std::string text;
  if (!base::ReadTextFile(nsswitch, text).ok()) return true;
  for (std::string_view rest = text; !rest.empty();) {
    std::string_view line = base::TakeUntil(rest, "\n");
    line = line.substr(0, line.find('#'));
    if (base::Trim(base::TakeUntil(line, ":")) == "passwd" && NamesSource(line, wanted)) return true;
  }
  return false;
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
