#include "platform/host/account_lookup.h"

#include <pwd.h>
#include <shadow.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

#include "base/read_text_file.h"
#include "platform/host/nsswitch.h"

namespace platform::host {
namespace {

constexpr std::size_t kFirstBufferSize = 1024;
constexpr std::size_t kMaxBufferSize = std::size_t{1} << 20;

// Runs one of the C library's reentrant functions with a buffer that grows until the record fits, and hands
// the record to `take`.
//
// When no source of accounts could answer, the C library returns whatever errno holds. That may be 0, which
// means "no such account", so errno is set to EIO before the call.
template <typename Key, typename Record, typename Take>
Lookup Find(int (*look_up)(Key, Record*, char*, std::size_t, Record**), Key key, Take take) {
  std::vector<char> buffer(kFirstBufferSize);
  for (;;) {
    Record record{};
    Record* found = nullptr;
    errno = EIO;
    const int error = look_up(key, &record, buffer.data(), buffer.size(), &found);
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

AccountEntry EntryOf(const passwd& record) {
  return {TextOf(record.pw_name), record.pw_uid, record.pw_gid, TextOf(record.pw_dir)};
}

// With these signs begin instructions for another source, which name no account.
bool IsInstruction(const char* name) { return name[0] == '+' || name[0] == '-'; }

enum class Decides { kNothing, kWhatItHolds, kAll };

// What the local file decides without the sources behind it.
Decides LocalFileDecides(const std::string& nsswitch, const std::string& database) {
  std::vector<SourceLine> lines;
  // Which one of several lines counts is up to the C library.
  if (!ReadSources(nsswitch, database, lines) || lines.size() != 1) return Decides::kNothing;
  const SourceLine& words = lines.front();
  if (words.empty() || words.front() != "files") return Decides::kNothing;
  if (words.size() == 1) return Decides::kAll;
  return words[1].starts_with('[') ? Decides::kNothing : Decides::kWhatItHolds;
}

// Hands the records of the file to `keep`, read by the C library's own parser, unless the file decides
// nothing. True when whatever was not among them is nowhere.
template <typename Record, typename Keep>
bool ReadLocalFile(const std::string& path, Decides decides,
                   int (*read_next)(FILE*, Record*, char*, std::size_t, Record**), Keep keep) {
  std::string text;
  if (decides == Decides::kNothing || !base::ReadTextFile(path, text).ok()) return false;
  const std::unique_ptr<FILE, int (*)(FILE*)> stream(::fmemopen(text.data(), text.size(), "r"), &std::fclose);
  if (!stream) return false;
  while (Find(read_next, stream.get(), keep) == Lookup::kFound) continue;
  return errno == ENOENT && decides == Decides::kAll;  // ENOENT is the end
}

}  // namespace

Lookup AccountLookup::FindByUid(uid_t uid, AccountEntry& entry) {
  ReadPasswd();
  if (const auto kept = accounts_.find(uid); kept != accounts_.end()) {
    entry = kept->second;
    return Lookup::kFound;
  }
  if (passwd_.is_all) return Lookup::kNotFound;
  return Find(::getpwuid_r, uid, [&entry](const passwd& record) { entry = EntryOf(record); });
}

Lookup AccountLookup::FindByName(const std::string& name) {
  ReadPasswd();
  if (names_.contains(name)) return Lookup::kFound;
  if (passwd_.is_all) return Lookup::kNotFound;
  return Find(::getpwnam_r, name.c_str(), [](const passwd&) {});
}

Lookup AccountLookup::FindExpiryDay(const std::string& name, long& day) {
  ReadShadow();
  if (const auto kept = expiry_days_.find(name); kept != expiry_days_.end()) {
    day = kept->second;
    return Lookup::kFound;
  }
  if (shadow_.is_all) return Lookup::kNotFound;
  return Find(::getspnam_r, name.c_str(), [&day](const spwd& record) { day = record.sp_expire; });
}

bool AccountLookup::HasChanged(LocalFile& file) const {
  const auto now = std::pair(SignatureOf(nsswitch_), SignatureOf(file.path));
  return std::exchange(file.read, now) != now;
}

void AccountLookup::ReadPasswd() {
  if (!HasChanged(passwd_)) return;
  accounts_.clear();
  names_.clear();
  const auto keep = [this](const passwd& record) {
    if (IsInstruction(record.pw_name)) return;
    names_.emplace(record.pw_name);
    accounts_.try_emplace(record.pw_uid, EntryOf(record));  // of several the first one counts
  };
  passwd_.is_all = ReadLocalFile(passwd_.path, LocalFileDecides(nsswitch_, "passwd"), ::fgetpwent_r, keep);
}

void AccountLookup::ReadShadow() {
  if (!HasChanged(shadow_)) return;
  expiry_days_.clear();
  const auto keep = [this](const spwd& record) {
    if (!IsInstruction(record.sp_namp)) expiry_days_.try_emplace(record.sp_namp, record.sp_expire);
  };
  shadow_.is_all = ReadLocalFile(shadow_.path, LocalFileDecides(nsswitch_, "shadow"), ::fgetspent_r, keep);
}

}  // namespace platform::host
