#include "platform/host/host_app_privilege.h"

#include <sys/stat.h>

#include <cerrno>
#include <string_view>
#include <unordered_set>

#include "base/text.h"
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

void AddLines(std::string& text, const std::vector<std::string>& lines) {
  std::unordered_set<std::string> present;
  for (std::string_view rest = text; !rest.empty();) present.emplace(base::TakeUntil(rest, "\n"));
  for (const std::string& line : lines) {
    if (present.insert(line).second) base::AppendLine(text, line);
  }
}

}  // namespace

std::vector<std::string> HostAppPrivilege::PLIBAppPrivUserAdd(const std::vector<std::string>& users,
                                                              const std::string& application_id) {
  std::vector<std::string> allowed;
  std::vector<std::string> refused;
  for (const std::string& user : users) {
    const bool is_known = IsOneLine(user) && accounts_.FindByName(user) == Lookup::kFound;
    (is_known ? allowed : refused).push_back(user);
  }
  if (allowed.empty()) return refused;
  if (!IsFileName(application_id)) return users;
  const int made = ::mkdir(folder_.c_str(), kFolderMode);
  // The umask may have taken bits from the mode of a new folder.
  if (made == 0 ? ::chmod(folder_.c_str(), kFolderMode) != 0 : errno != EEXIST) return users;
  const base::Errno error =
      EditTextFile(folder_ + '/' + application_id, {.mode = kFileMode, .keep_mode = false},
                   [&](std::string& text) { AddLines(text, allowed); });
  return error.ok() ? refused : users;
}

}  // namespace platform::host
