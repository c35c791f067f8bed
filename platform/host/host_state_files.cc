#include "platform/host/host_state_files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "base/file_descriptor.h"
#include "base/read_text_file.h"
#include "base/text.h"
#include "base/write_all.h"
#include "platform/host/key_value_text.h"
#include "platform/host/text_file.h"

namespace platform::host {
namespace {

constexpr mode_t kMode = 0644;

// The mode is set by a call of its own, because the umask would hide the state from the package's programs.
base::Errno FillPidFile(int file) {
  if (::fchmod(file, kMode) != 0) return base::Errno::Last();
  return base::WriteAll(file, std::to_string(::getpid()) + '\n');
}

}  // namespace

int HostStateFiles::Fail(base::Errno error) {
  last_error_ = error;
  errno = error.number();
  return -1;
}

int HostStateFiles::PLIBCFileGetKeyValue(const std::string& file, const std::string& key,
                                         std::span<char> buffer, int /*flags*/) {
  if (buffer.empty()) return Fail(base::Errno(EINVAL));
  std::string text;
  if (const base::Errno error = base::ReadTextFile(file, text); !error.ok()) return Fail(error);
  const auto value = FindValue(text, key);
  if (!value) return Fail(base::Errno(ENODATA));
  const std::size_t length = std::min(value->size(), buffer.size() - 1);
  std::copy_n(value->begin(), length, buffer.begin());
  buffer[length] = '\0';
  if (length == 0) last_error_ = base::Errno(ENODATA);
  return static_cast<int>(length);
}

int HostStateFiles::PLIBCFileSetKeyValue(const std::string& file, const std::string& key,
                                         const std::string& value, int /*flags*/) {
  if (!IsKeyValuePair(key, value)) return Fail(base::Errno(EINVAL));
  const base::Errno error = EditTextFile(file, {.mode = kMode, .keep_mode = true},
                                         [&](std::string& text) { SetValue(text, key, value); });
  return error.ok() ? 0 : Fail(error);
}

int HostStateFiles::PLIBCProcPidFileCreate(const std::string& path) {
  // Made exclusively, so that a link that somebody put at the path is not followed.
  const base::FileDescriptor file(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
  if (!file.is_open()) return Fail(base::Errno::Last());
  const base::Errno error = FillPidFile(file.get());
  if (error.ok()) return 0;
  (void)::unlink(path.c_str());  // the first digits of a pid are another process's pid
  return Fail(error);
}

pid_t HostStateFiles::PLIBCReadPidFile(const std::string& path) {
  std::string text;
  if (const base::Errno error = base::ReadTextFile(path, text); !error.ok()) return Fail(error);
  std::string_view rest = text;
  const std::string_view number = base::Trim(base::TakeUntil(rest, "\n"));
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), pid);
  if (error != std::errc{} || end != number.data() + number.size() || pid <= 0)
    return Fail(base::Errno(EINVAL));
  return pid;
}

int HostStateFiles::PLIBCProcAlive(pid_t pid) {
  if (pid <= 0) return 0;
  std::string text;
  if (base::ReadTextFile("/proc/" + std::to_string(pid) + "/stat", text).ok()) {
    // "123 (name) S ...": the name may hold anything, also parentheses and blanks.
    const std::size_t name_end = text.rfind(") ");
    if (name_end != std::string::npos && name_end + 2 < text.size()) {
      const char state = text[name_end + 2];
      return state != 'Z' && state != 'X' && state != 'x' ? 1 : 0;
    }
  }
  // Other users' processes may be hidden from /proc.
  return ::kill(pid, 0) == 0 || errno == EPERM ? 1 : 0;
}

}  // namespace platform::host
