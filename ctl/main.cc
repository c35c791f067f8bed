// updater-ctl: the companion of updater-svr for people who want to see an upgrade.

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>

#include "ctl/command_line.h"

int main(int argc, char** argv) {
  (void)std::signal(SIGXFSZ,
                    SIG_IGN);  // of a valid number it cannot fail; whoever writes too much is told of it
  const bool is_coloured = isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr;
  const int err_terminal = isatty(STDERR_FILENO) == 1 ? STDERR_FILENO : -1;
  return ctl::RunCommandLine(argc, argv, {std::cout, std::cerr, is_coloured, err_terminal});
}
