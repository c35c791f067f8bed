#include "platform/host/host_app_privilege.h"

#include <sys/stat.h>

#include <cerrno>
#include <string_view>

#include "base/text.h"
#include "platform/host/account_lookup.h"
#include "platform/host/text_file.h"

namespace platform::host {
namespace {

using namespace std::string_view_literals;

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0600;

// Names of domain accounts may hold a slash or a backslash.
bool IsOneLine(std::string_view user) {
  return !user.empty() && user.find_first_of("\n\0"sv) == std::string_view::npos;
}

bool IsFileName(std::string_view name) {
  return !name.empty() && name.front() != '.' && name.find_first_of("/\0"sv) == std::string_view::npos;
}

void AddLine(std::string& text, const std::string& line) {
  for (std::string_view rest = text; !rest.empty();) {
    if (base::TakeUntil(rest, "\n") == line) return;
  }
  base::AppendLine(text, line);
}

}  // namespace

int HostAppPrivilege::PLIBAppPrivUserAddOne(const std::string& user, const std::string& application_id) {
  if (!IsOneLine(user) || !IsFileName(application_id)) return -1;
  AccountEntry ignored;
  if (FindAccount(user, ignored) != Lookup::kFound) return -1;
  const int made = ::mkdir(folder_.c_str(), kFolderMode);
  // The umask may have taken bits from the mode of a new folder.
  if (made == 0 ? ::chmod(folder_.c_str(), kFolderMode) != 0 : errno != EEXIST) return -1;
  const base::Errno error =
      EditTextFile(folder_ + '/' + application_id, {.mode = kFileMode, .keep_mode = false},
                   [&](std::string& text) { AddLine(text, user); });
  return error.ok() ? 0 : -1;
}

}  // namespace platform::host
