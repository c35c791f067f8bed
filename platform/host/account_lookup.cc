#include "platform/host/account_lookup.h"

#include <pwd.h>
#include <shadow.h>

#include <cerrno>
#include <vector>

namespace platform::host {
namespace {

constexpr std::size_t kFirstBufferSize = 1024;
constexpr std::size_t kMaxBufferSize = std::size_t{1} << 20;

// Runs one of the C library's reentrant lookups with a buffer that grows until the entry fits, and hands the
// entry to `take`.
//
// When no source of accounts could answer, the C library returns whatever errno holds. That may be 0, which
// means "no such account", so errno is set to EIO before the call.
template <typename Record, typename LookUp, typename Take>
Lookup Find(LookUp look_up, Take take) {
  std::vector<char> buffer(kFirstBufferSize);
  for (;;) {
    Record record{};
    Record* found = nullptr;
    errno = EIO;
    const int error = look_up(&record, buffer.data(), buffer.size(), &found);
    if (found != nullptr) {
      take(*found);
      return Lookup::kFound;
    }
    if (error == 0) return Lookup::kNotFound;
    if (error == ERANGE && buffer.size() < kMaxBufferSize) {
      buffer.resize(buffer.size() * 2);
    } else if (error != EINTR) {
      errno = error;
      return Lookup::kFailed;
    }
  }
}

std::string TextOf(const char* text) { return text == nullptr ? std::string() : text; }

auto TakeInto(AccountEntry& entry) {
  return [&entry](const passwd& record) {
    entry = {TextOf(record.pw_name), record.pw_uid, record.pw_gid, TextOf(record.pw_dir)};
  };
}

}  // namespace

Lookup FindAccount(uid_t uid, AccountEntry& entry) {
  return Find<passwd>([uid](passwd* record, char* buffer, std::size_t size,
                            passwd** found) { return ::getpwuid_r(uid, record, buffer, size, found); },
                      TakeInto(entry));
}

Lookup FindAccount(const std::string& name, AccountEntry& entry) {
  return Find<passwd>(
      [&name](passwd* record, char* buffer, std::size_t size, passwd** found) {
        return ::getpwnam_r(name.c_str(), record, buffer, size, found);
      },
      TakeInto(entry));
}

Lookup FindExpiryDay(const std::string& name, long& day) {
  return Find<spwd>([&name](spwd* record, char* buffer, std::size_t size,
                            spwd** found) { return ::getspnam_r(name.c_str(), record, buffer, size, found); },
                    [&day](const spwd& record) { day = record.sp_expire; });
}

}  // namespace platform::host
