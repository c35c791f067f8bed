#include "platform/host/host_accounts.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "base/file_descriptor.h"
#include "base/retry.h"
#include "platform/host/real_path.h"

namespace platform::host {
namespace {

constexpr long kSecondsPerDay = 24L * 60 * 60;

// Login programs count an account as expired on that day itself; so does this.
bool HasPassed(long day) { return day >= 0 && std::time(nullptr) / kSecondsPerDay >= day; }

// A file of accounts that is empty does not tell who has no account; it is treated like an unreadable one.
bool HasText(const std::string& path) {
  const base::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  char first = '\0';
  return file.is_open() && base::RetryBusy([&] { return ::read(file.get(), &first, 1); }) == 1;
}

}  // namespace

Lookup HostAccounts::FindByUid(uid_t uid, Account& account) {
  AccountEntry entry;
  const Lookup found = accounts_.FindByUid(uid, entry);
  if (found == Lookup::kNotFound) {
    return HasText(passwd_) ? Lookup::kNotFound : Lookup::kFailed;
  }
  if (found != Lookup::kFound) return found;
  long expiry_day = -1;
  if (accounts_.FindExpiryDay(entry.name, expiry_day) == Lookup::kFailed && errno != ENOENT)
    return Lookup::kFailed;
  account = {.name = entry.name,
             .uid = entry.uid,
             .gid = entry.gid,
             .home = RealPath(entry.home).value_or(std::string()),
             .expired = HasPassed(expiry_day)};
  return Lookup::kFound;
}

}  // namespace platform::host
