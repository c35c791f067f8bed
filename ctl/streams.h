// What every command of updater-ctl answers with: its report, the reason of a failure, and the exit status.
#pragma once

#include <ostream>
#include <string>

namespace ctl {

// Where a command writes: its report, and why it failed.
struct Streams {
  std::ostream& out;
  std::ostream& err;
};

// Exit statuses besides 0 for success.
inline constexpr int kFailed = 1;   // a sample could not be made, or a run did not end in "done"
inline constexpr int kRefused = 2;  // the arguments or the folder of a run were refused; nothing was changed

// Tells why a command has not succeeded; returns `status`.
[[nodiscard]] inline int TellReason(const Streams& streams, const std::string& reason, int status) {
  streams.err << "updater-ctl: " << reason << "\n";
  return status;
}

}  // namespace ctl
