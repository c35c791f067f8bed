// What every command of updater-ctl answers with: its report, the reason of a failure, and the exit status.
#pragma once

#include <ostream>
#include <string>

#include "ctl/output.h"

namespace ctl {

// Where a command writes: its report, and why it failed.
struct Streams {
  std::ostream& out;
  std::ostream& err;
  bool is_coloured = false;  // `out` is a terminal whose user wants colours
  int err_terminal = -1;     // the descriptor behind `err` where that is a terminal
};

// Exit statuses besides 0: all is well.
inline constexpr int kFailed = 1;  // a problem was found, or what was asked for could not be done
inline constexpr int kRefused =
    2;  // the arguments were refused, or it could not be looked; nothing was changed

// Tells why a command has not succeeded; returns `status`.
[[nodiscard]] inline int TellReason(const Streams& streams, const std::string& reason, int status) {
  streams.err << "updater-ctl: " << Printable(reason) << "\n";
  return status;
}

}  // namespace ctl
