#include "ctl/stop_signals.h"

namespace ctl {
namespace {

using SignalNumber = volatile std::sig_atomic_t;

SignalNumber& Arrived() {
  static SignalNumber number = 0;
  return number;
}

int& Obeyed() {
  static int number = 0;
  return number;
}

void Remember(int number) { Arrived() = number; }

}  // namespace

StopSignals::StopSignals() {
  Arrived() = 0;
  Obeyed() = 0;
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    struct sigaction action {};
    action.sa_handler = kSignals[i] == SIGXFSZ ? SIG_IGN : Remember;
    // Every write to a pipe that nobody reads brings one.
    action.sa_flags = SA_RESTART | (kSignals[i] == SIGPIPE ? 0 : static_cast<int>(SA_RESETHAND));
    (void)sigaction(kSignals[i], nullptr, &former_[i]);  // of a valid number it cannot fail
    if (former_[i].sa_handler != SIG_IGN) (void)sigaction(kSignals[i], &action, nullptr);
  }
}

StopSignals::~StopSignals() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) (void)sigaction(kSignals[i], &former_[i], nullptr);
  if (Obeyed() != 0) (void)raise(Obeyed());
}

int CheckStop(std::string& error) {
  if (Arrived() == 0) return 0;
  Obeyed() = Arrived();
  error = "stopped by a signal";
  return -1;
}

}  // namespace ctl
