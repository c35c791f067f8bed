// The file server's configuration, as far as the program needs it: sections and their parameters.
//
// Read as the file server reads it: a backslash at the end of a line continues it, lines that begin with '#'
// or ';' are comments (there are none behind a value), case and blanks in names do not count, later values
// replace earlier ones, `include` puts another file's lines in its place and `copy` starts with the
// parameters of an earlier section.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace platform::host {

// A section's or parameter's name in the form in which names are compared: lower case, without blanks.
[[nodiscard]] std::string FoldSambaName(std::string_view name);

// A yes-or-no parameter that says yes.
[[nodiscard]] bool IsSambaYes(std::string_view value);

// Tells whether a file is still the one that was read.
struct FileSignature {
  std::string path;
  int error = 0;  // of stat: a file that was missing may be there now
  dev_t device = 0;
  ino_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modified_ns = 0;
  std::int64_t changed_ns = 0;

  [[nodiscard]] static FileSignature Of(const std::string& path);
  [[nodiscard]] bool operator==(const FileSignature&) const = default;
};

struct SambaSection {
  std::string name;                               // as written where it stands first
  std::map<std::string, std::string> parameters;  // by folded name

  // The value of a parameter; empty when it is not set.
  [[nodiscard]] std::string_view Get(const std::string& folded_name) const;
};

struct SambaConfiguration {
  std::map<std::string, SambaSection> sections;  // by folded name
  std::vector<FileSignature> files;              // everything that was read, the file itself first

  // False when a part of the configuration stands where it cannot be read here: in the file server's registry
  // or in a file that it names for each client. What is not found may then still be there.
  bool is_complete = true;

  [[nodiscard]] bool IsCurrent() const;
};

// Returns 0; ENOENT when there is no such file; EINVAL when a line is not in the form; ELOOP when files
// include each other without end; otherwise the errno of what failed. An included file that does not exist is
// nothing to read, as for the file server.
[[nodiscard]] int ReadSambaConfiguration(const std::string& path, SambaConfiguration& configuration);

}  // namespace platform::host
