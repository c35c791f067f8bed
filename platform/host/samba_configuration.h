// The file server's configuration, as far as the program needs it: sections with their folders.
//
// Read as the file server reads it, oddities included:
// - A backslash at the end of a line continues it. Of several blanks in a row the first one stays.
// - A line that begins with '#' or ';' is a comment; there are none behind a value. What follows a NUL is not
//   seen, and a line without '=' is passed over.
// - The second part of a section that comes twice goes on with the first, whose options
//   ("type:name") are dropped.
// - `path` and `directory` are one parameter. In [global] it is what later sections begin with.
// - `copy` takes the folder of an earlier section, where the section has set none, and its options.
// - `include` reads another file's lines in its place; a section that begins there goes on behind it.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "base/errno.h"
#include "platform/host/file_signature.h"

namespace platform::host {

struct SambaSection {
  std::string name;                            // as written where it stands first
  std::string path;                            // as written, quotes included; empty: it is no share
  bool has_own_path = false;                   // set, if only to nothing, which `copy` does not change
  std::map<std::string, std::string> options;  // "type:name", folded as a word

  // The value of an option; empty when it is not set.
  [[nodiscard]] std::string_view Option(const std::string& folded_name) const;
};

struct SambaConfiguration {
  std::map<std::string, SambaSection> sections;  // all but [global], by folded name
  std::map<std::string, FileSignature> files;    // everything that was read, by path

  // False when a part of the configuration is out of reach here: it stands in the file server's registry, in
  // a file that it names for each client or that cannot be read, or is copied from a section that is not
  // there. What is not found may then still be there.
  bool is_complete = true;

  [[nodiscard]] bool IsCurrent() const;
};

// Fails with ENOENT when there is no such file; EINVAL when it is no file, or a line in it or in an included
// file is not in the form; ELOOP when files include each other too deeply, as those do that include
// themselves; EFBIG when sections copy too much from each other; otherwise the errno of what failed. An
// included file that does not exist is nothing to read, as for the file server, and neither is a device.
[[nodiscard]] base::Errno ReadSambaConfiguration(const std::string& path, SambaConfiguration& configuration);

}  // namespace platform::host
