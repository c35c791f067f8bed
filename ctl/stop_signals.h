// Ending a command by a signal without leaving half of its work behind.
#pragma once

#include <array>
#include <csignal>
#include <string>

namespace ctl {

// While it lives, what would end the process (SIGINT, SIGTERM, SIGHUP, SIGPIPE) makes CheckStop() fail
// instead; a second signal ends it all the same, and what was ignored before still is. When the command has
// cleaned up and this object goes, the process ends by the signal, unless nobody has asked CheckStop() any
// more. A write beyond a limit (SIGXFSZ) fails like any other.
class StopSignals {
 public:
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  ~StopSignals();

 private:
  static constexpr std::array kSignals = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ};
  std::array<struct sigaction, kSignals.size()> former_{};
};

// Returns 0, or -1 with the reason in `error` when a signal wants the command to stop.
[[nodiscard]] int CheckStop(std::string& error);

}  // namespace ctl
