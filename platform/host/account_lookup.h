// Accounts in the system's user database, with "not there" and "could not ask" told apart.
#pragma once

#include <sys/types.h>

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "platform/host/file_signature.h"
#include "platform/lookup.h"
#include "platform/system_paths.h"

namespace platform::host {

struct AccountEntry {
  std::string name;
  uid_t uid = 0;
  gid_t gid = 0;
  std::string home;
};

// For every question the C library reads the file of the local accounts from its beginning: a check of all
// users would take time with the square of their number. So that file is read once, and again when it or
// nsswitch.conf has changed: no answer is older than its question. The C library is asked where the file does
// not decide: for accounts that other sources may have, or always, as nsswitch.conf says.
class AccountLookup {
 public:
  explicit AccountLookup(const SystemPaths& paths)
      : nsswitch_(paths.account_sources), passwd_{.path = paths.passwd}, shadow_{.path = paths.shadow} {}

  // A failure leaves its reason in errno.
  [[nodiscard]] Lookup FindByUid(uid_t uid, AccountEntry& entry);
  [[nodiscard]] Lookup FindByName(const std::string& name);

  // The day, counted from 1970-01-01, from which on the account is expired; negative for never.
  [[nodiscard]] Lookup FindExpiryDay(const std::string& name, long& day);

 private:
  struct LocalFile {
    std::string path;
    std::pair<FileSignature, FileSignature> read{};  // nsswitch.conf and the file, when they were read
    bool is_all = false;                             // what was not read from it is nowhere
  };

  [[nodiscard]] bool HasChanged(LocalFile& file) const;
  void ReadPasswd();
  void ReadShadow();

  std::string nsswitch_;
  LocalFile passwd_;
  std::unordered_map<uid_t, AccountEntry> accounts_;
  std::unordered_set<std::string> names_;
  LocalFile shadow_;
  std::unordered_map<std::string, long> expiry_days_;
};

}  // namespace platform::host
