// updater-svr: composes the program for the machine it runs on. No logic of its own.

#include <fcntl.h>
#include <unistd.h>

#include <iostream>

#include "platform/host/host_platform.h"
#include "updater/database_check.h"
#include "updater/run_updater.h"
#include "updater/terminal_progress.h"

namespace {

// If the program is started with a standard stream closed, the next file that it opens gets that stream's
// number. The progress lines would then be written into a database.
void KeepStandardStreamsTaken(const char* null_device) {
  int fd = 0;
  do {
    fd = open(null_device, O_RDWR | O_CLOEXEC);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) (void)close(fd);  // one too many, never used
}

}  // namespace

int main(int argc, char** argv) {
  const platform::SystemPaths paths;
  KeepStandardStreamsTaken(paths.null_device.c_str());
  platform::host::HostPlatform host(paths);
  updater::legacy::LegacySteps legacy;
  updater::DatabaseCheck check(paths, host.platform());
  updater::TerminalProgress progress(std::cout, std::cerr, STDERR_FILENO);
  const std::span<const char* const> arguments(argv + 1, argc > 0 ? static_cast<std::size_t>(argc) - 1 : 0);
  return updater::RunUpdater(arguments, {.paths = paths,
                                         .platform = host.platform(),
                                         .legacy = legacy,
                                         .check = check,
                                         .out = progress.out(),
                                         .err = progress.err(),
                                         .observer = progress.observer()});
}
