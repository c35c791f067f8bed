#include "updater/terminal_progress.h"

#include <unistd.h>

namespace updater {

int TerminalProgress::LineBuffer::sync() {
  if (!view().empty()) line_.WriteBeside(target_, str());
  str({});
  return 0;
}

TerminalProgress::Beside::Beside(std::ostream& real_out, std::ostream& real_err, int err_file)
    : line(real_err, err_file),
      out_buffer(line, real_out),
      err_buffer(line, real_err),
      out(&out_buffer),
      err(&err_buffer) {}

TerminalProgress::TerminalProgress(std::ostream& out, std::ostream& err, int err_file)
    : out_(out), err_(err) {
  if (isatty(err_file) == 1) beside_.emplace(out, err, err_file);
}

}  // namespace updater
