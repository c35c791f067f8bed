#include "updater/progress_line.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <system_error>

namespace updater {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kTerminalPause(100);
constexpr std::chrono::milliseconds kPause(5000);
constexpr std::size_t kBarWidth = 20;
constexpr std::size_t kLeastBarWidth = 5;
constexpr std::size_t kUnknownColumns = 80;

const char* NameOf(Phase phase) {
  switch (phase) {
    case Phase::kCopies:
      return "making working copies";
    case Phase::kUpdaters:
      return "choosing the updaters";
    case Phase::kPlacing:
      return "putting in place";
    case Phase::kChecking:
      break;
  }
  return "checking";
}

std::string Elapsed(steady_clock::time_point start) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - start).count();
  const auto two_digits = [](auto number) { return (number < 10 ? "0" : "") + std::to_string(number); };
  const std::string rest = two_digits(seconds % 60);
  return seconds < 3600 ? std::to_string(seconds / 60) + ":" + rest
                        : std::to_string(seconds / 3600) + ":" + two_digits(seconds / 60 % 60) + ":" + rest;
}

// As wide as there is room for beside the text, and nothing where that is too little.
std::string Bar(const StepNumber& step, std::size_t room) {
  constexpr std::size_t kFrame = 3;  // "[", "] "
  const std::size_t width = std::min(kBarWidth, room - std::min(room, kFrame));
  if (width < kLeastBarWidth) return {};
  const std::size_t full = step.of == 0 ? 0 : width * (step.number - 1) / step.of;
  return "[" + std::string(full, '#') + std::string(width - full, '.') + "] ";
}

// How much fits into a line: in its last column some terminals go on to the next one.
std::size_t RoomIn(int terminal) {
  struct winsize size {};
  if (ioctl(terminal, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUnknownColumns - 1;
  return size.ws_col - 1U;
}

bool IsInBackground(int terminal) {
  const pid_t foreground = tcgetpgrp(terminal);
  return foreground >= 0 && foreground != getpgrp();
}

// A thread that takes no signals: they are for whoever has begun the work.
std::thread StartQuietly(const std::function<void()>& work) {
  sigset_t all;
  sigset_t before;
  (void)sigfillset(&all);  // neither can fail with these arguments
  (void)pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread;
  try {
    thread = std::thread(work);
  } catch (const std::system_error&) {
    // There can be no more threads. Then nothing is shown, and the work goes on.
  }
  (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

}  // namespace

ProgressLine::ProgressLine(std::ostream& out, int terminal, std::string head)
    : out_(out), terminal_(terminal), head_(std::move(head)), thread_(StartQuietly([this] { Tick(); })) {}

ProgressLine::~ProgressLine() {
  {
    const std::lock_guard<std::mutex> lock(state_);
    ends_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
  Clear();
}

void ProgressLine::BeginPhase(Phase phase) {
  const std::lock_guard<std::mutex> lock(state_);
  work_ = NameOf(phase);
  if (phase == Phase::kPlacing) step_.number = step_.of + 1;  // all steps are done
}

void ProgressLine::BeforeUpdate(const AbstractUpdater& updater, StepNumber step) {
  std::string work = "step " + std::to_string(step.number) + " of " + std::to_string(step.of) + " (" +
                     std::to_string(updater.GetFromVersion().number) + " to " +
                     std::to_string(updater.GetToVersion().number) + ")";
  const std::lock_guard<std::mutex> lock(state_);
  work_ = std::move(work);
  step_ = step;
}

void ProgressLine::AfterUpdate(const AbstractUpdater& /*updater*/, int /*result*/) {}

void ProgressLine::OnParts(const Parts& parts) {
  const std::lock_guard<std::mutex> lock(state_);
  parts_ = parts;
}

void ProgressLine::Show(std::string work) {
  const std::lock_guard<std::mutex> lock(state_);
  work_ = std::move(work);
}

std::string ProgressLine::Text(std::size_t room) const {
  const std::lock_guard<std::mutex> lock(state_);
  std::string text = work_;
  if (parts_.of > 0) {
    // The one that is worked on, or one of them where there are several threads.
    text += std::string(", ") + parts_.name + " " + std::to_string(std::min(parts_.done + 1, parts_.of)) +
            " of " + std::to_string(parts_.of);
  }
  text += ", " + Elapsed(start_);
  if (terminal_ == kNoTerminal) return head_ + text;
  return (Bar(step_, room - std::min(room, text.size())) + text).substr(0, room);
}

void ProgressLine::Tick() {
  const std::chrono::milliseconds pause = terminal_ == kNoTerminal ? kPause : kTerminalPause;
  std::unique_lock<std::mutex> lock(state_);
  while (!wake_.wait_for(lock, pause, [this] { return ends_; })) {
    if (work_.empty()) continue;
    lock.unlock();
    Draw();
    lock.lock();
  }
}

void ProgressLine::Draw() {
  const std::lock_guard<std::mutex> lock(drawing_);
  if (terminal_ == kNoTerminal) {
    out_ << Text(0) << std::endl;
  } else if (!IsInBackground(terminal_)) {
    // With nothing but blanks and carriage returns it works on every terminal. One that has become narrower
    // keeps what it has wrapped: more blanks would only wrap, too.
    const std::size_t room = RoomIn(terminal_);
    const std::string text = Text(room);
    const std::size_t end = std::min(drawn_, room);
    out_ << "\r" << text << std::string(end - std::min(end, text.size()), ' ') << std::flush;
    drawn_ = text.size();
  }
}

void ProgressLine::Clear() {
  const std::lock_guard<std::mutex> lock(drawing_);
  if (drawn_ > 0) out_ << "\r" << std::string(std::min(drawn_, RoomIn(terminal_)), ' ') << "\r" << std::flush;
  drawn_ = 0;
}

void ProgressLine::WriteBeside(std::ostream& target, const std::string& text) {
  Clear();
  const std::lock_guard<std::mutex> lock(drawing_);
  target << text << std::flush;
}

}  // namespace updater
