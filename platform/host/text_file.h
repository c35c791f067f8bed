// Small text files that are replaced whole.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "base/errno.h"

namespace platform::host {

struct EditOptions {
  mode_t mode;     // of a file that has to be made
  bool keep_mode;  // an existing file keeps its own mode; otherwise it gets `mode`
};

// Changes the text of a file, which need not exist; the text is then empty at first. Whoever reads at the
// same time, or after a crash, finds the old text or the new one: the new text is written to a new file in
// the same folder, flushed, and renamed over the old one; new files that killed writers have left there are
// removed. The owner is kept. On failure the file is as it was. Nothing is written when `edit` changes
// nothing.
//
// A path that is a symbolic link stays one and its target is replaced, because the other programs reach the
// text through that target. The link must belong to the user of this process or to the owner of the target,
// so that nobody else chooses what is overwritten; otherwise, and when its target is missing, the edit fails.
[[nodiscard]] base::Errno EditTextFile(const std::string& path, const EditOptions& options,
                                       const std::function<void(std::string&)>& edit);

}  // namespace platform::host
