// updater-ctl: the companion of updater-svr for people who want to see an upgrade.

#include <iostream>

#include "ctl/command_line.h"

int main(int argc, char** argv) { return ctl::RunCommandLine(argc, argv, {std::cout, std::cerr}); }
