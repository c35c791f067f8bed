// A library that is loaded in front of the C library: it counts the calls that change files, and at one of
// them lets the call fail, kills the process, or takes the file system away.
//
//   FAULT_AT      the call that is hit, from 1; 0 for none
//   FAULT_KIND    "kill"; "abort", which makes the volume read-only as after an error of its disk; or the
//                 number of an errno, with which the call fails. Then those that only open a file count, too.
//   FAULT_EVER    when set, every call behind it fails as well
//   FAULT_ONLY    when set, only calls of this name count, such as "rename"
//   FAULT_NEVER   calls of this name fail with EINVAL, as where a file system does not know them
//   FAULT_VOLUME  where the volume is mounted
//   FAULT_TRACE   a file that gets a line for every call; the one that is hit has an asterisk
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::string Variable(const char* name) {
  const char* const value = getenv(name);
  return value == nullptr ? std::string() : value;
}

// The function of that name behind this library.
template <typename Result, typename... Parameters>
auto Next(const char* name) {
  return reinterpret_cast<Result (*)(Parameters...)>(dlsym(RTLD_NEXT, name));
}

struct Plan {
  long at = strtol(Variable("FAULT_AT").c_str(), nullptr, 10);
  std::string kind = Variable("FAULT_KIND");
  int error = static_cast<int>(strtol(kind.c_str(), nullptr, 10));
  bool for_ever = !Variable("FAULT_EVER").empty();
  std::string only = Variable("FAULT_ONLY");
  std::string never = Variable("FAULT_NEVER");
  int trace = Next<int, const char*, int, mode_t>("open")(Variable("FAULT_TRACE").c_str(),
                                                          O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
};

std::string PathOf(int fd) {
  std::array<char, PATH_MAX> path = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  return readlink(link.c_str(), path.data(), path.size() - 1) < 0 ? "" : path.data();
}

std::string PathAt(int folder, const char* name) {
  if (name == nullptr || name[0] == '/') return name == nullptr ? "" : name;
  return PathOf(folder) + "/" + name;
}

// "look" for what opens a file without changing anything.
const char* Opening(int flags) { return (flags & (O_CREAT | O_TRUNC)) != 0 ? "open" : "look"; }

// True when the call is to fail, with errno set. Pipes and sockets have no path and do not count.
bool IsHit(const std::string& call, const std::string& path) {
  static const Plan plan;
  static std::atomic<long> count = 0;
  if (path.substr(0, 1) != "/" || (call == "look" && plan.error == 0)) return false;
  if (call == plan.never) {
    errno = EINVAL;
    return true;
  }
  const bool counts = plan.only.empty() || plan.only == call;
  const long number = counts ? ++count : 0;
  const bool is_hit = counts && plan.at != 0 && (number == plan.at || (number > plan.at && plan.for_ever));
  const std::string line = call + " " + path + (is_hit ? " *\n" : "\n");
  (void)Next<ssize_t, int, const void*, size_t>("write")(plan.trace, line.data(), line.size());
  if (!is_hit) return false;
  if (plan.kind == "kill") (void)raise(SIGKILL);
  if (plan.kind == "abort") (void)mount(nullptr, getenv("FAULT_VOLUME"), nullptr, MS_REMOUNT, "abort");
  errno = plan.error;
  return plan.error != 0;
}

}  // namespace

// Each has a name of its own for the compiler, because the C library declares some of them otherwise.
// Parameters and arguments are lists, which cannot stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses, bugprone-reserved-identifier)
#define CALL(RESULT, NAME, CALLED, PATH, PARAMETERS, ...)                                       \
  extern "C" RESULT Our_##NAME PARAMETERS __asm__(#NAME);                                       \
  extern "C" RESULT Our_##NAME PARAMETERS {                                                     \
    if (IsHit(CALLED, PATH)) return -1;                                                         \
    static auto* const real = reinterpret_cast<decltype(&Our_##NAME)>(dlsym(RTLD_NEXT, #NAME)); \
    return real(__VA_ARGS__);                                                                   \
  }
// Those with a number are what a hardened build calls when there is no mode.
CALL(int, open, Opening(how), PathAt(0, path), (const char* path, int how, mode_t bits), path, how, bits)
CALL(int, open64, Opening(how), PathAt(0, path), (const char* path, int how, mode_t bits), path, how, bits)
CALL(int, openat, Opening(how), PathAt(at, to), (int at, const char* to, int how, mode_t m), at, to, how, m)
CALL(int, __open_2, Opening(how), PathAt(0, path), (const char* path, int how), path, how)
CALL(int, __openat_2, Opening(how), PathAt(at, path), (int at, const char* path, int how), at, path, how)
CALL(int, ioctl, "clone", on == FICLONE ? PathOf(fd) : "", (int fd, unsigned long on, void* p), fd, on, p)
CALL(ssize_t, write, "write", PathOf(fd), (int fd, const void* from, size_t size), fd, from, size)
CALL(ssize_t, pwrite, "write", PathOf(fd), (int fd, const void* p, size_t n, off_t at), fd, p, n, at)
CALL(ssize_t, pwrite64, "write", PathOf(fd), (int fd, const void* p, size_t n, off64_t at), fd, p, n, at)
CALL(int, ftruncate, "ftruncate", PathOf(fd), (int fd, off_t size), fd, size)
CALL(int, ftruncate64, "ftruncate", PathOf(fd), (int fd, off64_t size), fd, size)
CALL(int, fsync, "fsync", PathOf(fd), (int fd), fd)
CALL(int, fdatasync, "fsync", PathOf(fd), (int fd), fd)
CALL(int, syncfs, "syncfs", PathOf(fd), (int fd), fd)
CALL(int, fchmod, "owner", PathOf(fd), (int fd, mode_t bits), fd, bits)
CALL(int, fchown, "owner", PathOf(fd), (int fd, uid_t user, gid_t group), fd, user, group)
CALL(int, unlink, "unlink", PathAt(0, path), (const char* path), path)
CALL(int, unlinkat, "unlink", PathAt(at, path), (int at, const char* path, int how), at, path, how)
CALL(int, rmdir, "unlink", PathAt(0, path), (const char* path), path)
CALL(int, mkdir, "mkdir", PathAt(0, path), (const char* path, mode_t bits), path, bits)
CALL(int, mkdirat, "mkdir", PathAt(at, path), (int at, const char* path, mode_t bits), at, path, bits)
CALL(int, symlinkat, "symlink", PathAt(at, path), (const char* to, int at, const char* path), to, at, path)
CALL(int, rename, "rename", PathAt(0, to), (const char* from, const char* to), from, to)
CALL(int, renameat, "rename", PathAt(to, path), (int at, const char* p, int to, const char* path), at, p, to,
     path)
CALL(int, renameat2, (how & RENAME_EXCHANGE) != 0 ? "exchange" : "rename", PathAt(to, path),
     (int at, const char* p, int to, const char* path, unsigned how), at, p, to, path, how)
// NOLINTEND(bugprone-macro-parentheses, bugprone-reserved-identifier)
