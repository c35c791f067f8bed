#include "platform/host/host_accounts.h"

#include <cerrno>
#include <ctime>

#include "platform/host/account_lookup.h"
#include "platform/host/real_path.h"
#include "platform/host/text_file.h"

namespace platform::host {
namespace {

constexpr long kSecondsPerDay = 24L * 60 * 60;

// The rule of the login programs: expired on the day itself.
bool HasPassed(long day) { return day >= 0 && std::time(nullptr) / kSecondsPerDay >= day; }

}  // namespace

Lookup HostAccounts::FindByUid(uid_t uid, Account& account) {
  AccountEntry entry;
  const Lookup found = FindAccount(uid, entry);
  if (found == Lookup::kNotFound) {
    std::string ignored;
    return ReadTextFile(passwd_, ignored) == 0 ? Lookup::kNotFound : Lookup::kFailed;
  }
  if (found != Lookup::kFound) return found;
  long expiry_day = -1;
  if (FindExpiryDay(entry.name, expiry_day) == Lookup::kFailed && errno != ENOENT) return Lookup::kFailed;
  account = {.name = entry.name, .uid = entry.uid, .gid = entry.gid, .expired = HasPassed(expiry_day)};
  return Lookup::kFound;
}

std::string HostAccounts::GetRealHomeFolder(const std::string& name) {
  AccountEntry entry;
  if (FindAccount(name, entry) != Lookup::kFound) return {};
  return RealPath(entry.home).value_or(std::string());
}

}  // namespace platform::host
