#include "ctl/short_lived_folder.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <random>

#include "base/errno.h"
#include "base/retry.h"
#include "file-op/file_op.h"

namespace ctl {
namespace {

constexpr char kKeep = 'k';
constexpr std::array kInterruptions = {SIGINT, SIGTERM, SIGHUP};

// What a signal handler may look at.
struct RemovingProcess {
  volatile pid_t id = 0;  // 0: there is none
  volatile int pipe = -1;
};
RemovingProcess guard;
std::array<struct sigaction, kInterruptions.size()> former_actions;

bool RemoveOnce(const std::string& path, bool with_folder) {
  if (with_folder) return file_op::FSRemoveTree(path, 0) == 0;
  std::error_code failure;
  bool is_removed = true;
  for (const auto& entry : std::filesystem::directory_iterator(path, failure)) {
    is_removed = file_op::FSRemoveTree(entry.path().string(), 0) == 0 && is_removed;
  }
  return is_removed && !failure;
}

// Threads of an interrupted process may still make files.
bool RemoveAll(const std::string& path, bool with_folder) {
  constexpr int kAttempts = 100;
  constexpr int kPauseMilliseconds = 50;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (RemoveOnce(path, with_folder)) return true;
    (void)poll(nullptr, 0, kPauseMilliseconds);  // a signal may cut the pause short
  }
  return false;
}

// Waits until the other end of the pipe is closed, which is also how the kernel leaves it.
[[noreturn]] void StandGuard(int pipe, const sigset_t& signals, const std::string& path, bool with_folder) {
  for (const int signal : kInterruptions) (void)std::signal(signal, SIG_IGN);  // the terminal tells all
  (void)std::signal(SIGQUIT, SIG_IGN);
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)sigprocmask(SIG_SETMASK, &signals, nullptr);
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    (void)close(file);  // others wait for them
  char word = 0;
  const ssize_t got = base::RetryInterrupted([&] { return read(pipe, &word, 1); });
  const bool went_well = (got == 1 && word == kKeep) || RemoveAll(path, with_folder);
  _exit(went_well ? 0 : 1);
}

bool WaitForGuard(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Calls only what a signal handler may call.
void Interrupt(int signal) {
  (void)close(guard.pipe);
  (void)WaitForGuard(guard.id);  // nobody is left to be told
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  (void)sigaction(signal, &action, nullptr);
  (void)raise(signal);  // taken when this returns
}

void HandleInterruptions() {
  struct sigaction action {};
  action.sa_handler = Interrupt;
  for (const int signal : kInterruptions) (void)sigaddset(&action.sa_mask, signal);
  for (std::size_t i = 0; i < kInterruptions.size(); ++i) {
    (void)sigaction(kInterruptions[i], nullptr, &former_actions[i]);
    // Whoever starts this in the background may have switched one off.
    if (former_actions[i].sa_handler != SIG_IGN) (void)sigaction(kInterruptions[i], &action, nullptr);
  }
}

int Fail(std::string& error, const std::string& what) {
  error = what + ": " + base::Errno::Last().Text();
  return -1;
}

}  // namespace

int ShortLivedFolder::Guard(bool with_folder, std::string& error) {
  std::array<int, 2> pipe{};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) return Fail(error, "cannot watch over " + path_);
  sigset_t all;
  sigset_t before;
  (void)sigfillset(&all);  // neither can fail with these arguments
  (void)sigprocmask(SIG_SETMASK, &all, &before);
  const pid_t process = fork();
  const base::Errno failure = base::Errno::Of(process);
  if (process == 0) {
    (void)close(pipe[1]);
    StandGuard(pipe[0], before, path_, with_folder);
  }
  (void)close(pipe[0]);
  guard.pipe = pipe[1];
  guard.id = std::max(process, 0);
  if (failure.ok()) HandleInterruptions();
  (void)sigprocmask(SIG_SETMASK, &before, nullptr);
  if (failure.ok()) return 0;
  (void)close(pipe[1]);
  error = "cannot watch over " + path_ + ": " + failure.Text();
  path_.clear();
  return -1;
}

int ShortLivedFolder::MakeIn(const std::string& above, const std::string& prefix, std::string& error) {
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(above, failure)) {
    const std::string name = entry.path().filename().string();
    const bool is_left = name.starts_with(prefix) &&
                         name.find_first_not_of("0123456789", prefix.size()) == std::string::npos &&
                         entry.is_directory(failure) && !entry.is_symlink(failure);
    if (is_left) (void)file_op::FSRemoveTree(entry.path().string(), 0);  // what stays harms nobody
  }
  return Take(above + "/" + prefix + std::to_string(std::random_device()()), error);
}

int ShortLivedFolder::Take(const std::string& path, std::string& error) {
  const bool is_new = !file_op::FSExists(path);
  std::error_code failure;
  // To list what is no folder fails.
  if (!is_new &&
      (std::filesystem::directory_iterator(path, failure) != std::filesystem::directory_iterator() ||
       failure)) {
    error = path + (failure ? " cannot be used: " + failure.message() : " is not empty");
    return -1;
  }
  path_ = path;
  // The guard comes first, so that there is no moment without one.
  if (Guard(is_new, error) < 0) return -1;
  if (!is_new || mkdir(path.c_str(), S_IRWXU) == 0) return 0;
  (void)Fail(error, "cannot make the folder " + path);
  Keep();  // nothing, or what somebody else has made meanwhile
  return -1;
}

bool ShortLivedFolder::End(bool is_kept) {
  if (path_.empty() || guard.id == 0) return true;
  for (std::size_t i = 0; i < kInterruptions.size(); ++i) {
    (void)sigaction(kInterruptions[i], &former_actions[i], nullptr);
  }
  // An interruption in between finds the process as it was before, and the guard removes the folder.
  if (is_kept) (void)base::RetryInterrupted([] { return write(guard.pipe, &kKeep, 1); });
  (void)close(guard.pipe);
  const bool went_well = WaitForGuard(guard.id);
  guard.id = 0;
  return went_well;
}

}  // namespace ctl
