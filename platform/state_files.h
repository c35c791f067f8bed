// Key/value files and pid files: how the package's programs tell each other their state.
#pragma once

#include <sys/types.h>

#include <span>
#include <string>

#include "base/interface.h"

namespace platform {

class StateFiles : public base::Interface {
 public:
  // Reads the value of `key` into `buffer`, cut to what fits and always ended by a zero byte. Returns the
  // length of the text in the buffer; less than 1 when the file cannot be read, has no such key, or the value
  // is empty. `flags` is 0.
  [[nodiscard]] virtual int PLIBCFileGetKeyValue(const std::string& file, const std::string& key,
                                                 std::span<char> buffer, int flags) = 0;

  // Sets the value of `key`, keeping every other line, the mode and the owner of the file; a missing file is
  // made. The file is replaced whole: a reader or a crash sees the old text or the new one. Returns 0, or a
  // negative value with the file as it was. `flags` is 0.
  [[nodiscard]] virtual int PLIBCFileSetKeyValue(const std::string& file, const std::string& key,
                                                 const std::string& value, int flags) = 0;

  // Writes the id of this process and a line feed into a new pid file, mode 0644. The folder must exist.
  // Returns 0, any other value on failure with errno set.
  [[nodiscard]] virtual int PLIBCProcPidFileCreate(const std::string& path) = 0;

  // The process id that a pid file holds; 0 or below when there is none.
  [[nodiscard]] virtual pid_t PLIBCReadPidFile(const std::string& path) = 0;

  // Non-zero when the process runs. A zombie does not.
  [[nodiscard]] virtual int PLIBCProcAlive(pid_t pid) = 0;

  // The error code of the last call of this interface that failed; 0 before the first.
  [[nodiscard]] virtual int PLIBCErrGet() = 0;
};

}  // namespace platform
