// The write-ahead logs that updaters have suspended while they worked.
#pragma once

#include "package/layout.h"

namespace updater {

// Lets every database of the package be opened with its log again. To be called when no updater works on them
// any more. A part that is not there is success. Returns false after logging "cannot write %s: %s (%d)\n" or
// "cannot list %s: %s (%d)\n".
[[nodiscard]] bool ResumeLogs(const package::PackagePaths& paths);

}  // namespace updater
