// Mounts that nobody outside of the test process sees, and that end with it.
#pragma once

#include <sched.h>
#include <sys/mount.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace tests {

// Gives the process a mount table of its own; false where the rights for that are missing.
[[nodiscard]] inline bool EnterMountNamespace() {
  static const bool entered =
      ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return entered;
}

// Runs a command of the machine; true when it succeeds.
[[nodiscard]] inline bool Run(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

// Takes a mount away at the end of the test.
[[nodiscard]] inline std::shared_ptr<void> ScopedMount(const std::string& mount_point) {
  return {nullptr, [mount_point](void*) {
            (void)::umount2(mount_point.c_str(), MNT_DETACH);  // the namespace ends with us anyway
          }};
}

}  // namespace tests
