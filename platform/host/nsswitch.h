// Where accounts come from, as nsswitch.conf says.
#pragma once

#include <string>
#include <vector>

namespace platform::host {

// The words of one line "passwd: files [NOTFOUND=return] sss" behind the colon: sources, and actions in
// brackets, which may take several words.
using SourceLine = std::vector<std::string>;

// All lines of a database ("passwd"); false when the file cannot be read.
[[nodiscard]] bool ReadSources(const std::string& nsswitch, const std::string& database,
                               std::vector<SourceLine>& lines);

}  // namespace platform::host
