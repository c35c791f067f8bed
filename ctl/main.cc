// updater-ctl: the companion of updater-svr for people who want to see an upgrade.

#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "ctl/command_line.h"

int main(int argc, char** argv) {
  const bool is_coloured = isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr;
  return ctl::RunCommandLine(argc, argv, {std::cout, std::cerr, is_coloured});
}
