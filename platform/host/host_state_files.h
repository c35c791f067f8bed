// Key/value and pid files on an ordinary Linux machine.
#pragma once

#include "base/errno.h"
#include "platform/state_files.h"

namespace platform::host {

class HostStateFiles : public StateFiles {
 public:
  [[nodiscard]] int PLIBCFileGetKeyValue(const std::string& file, const std::string& key,
                                         std::span<char> buffer, int flags) override;
  [[nodiscard]] int PLIBCFileSetKeyValue(const std::string& file, const std::string& key,
                                         const std::string& value, int flags) override;
  [[nodiscard]] int PLIBCProcPidFileCreate(const std::string& path) override;
  [[nodiscard]] pid_t PLIBCReadPidFile(const std::string& path) override;
  [[nodiscard]] int PLIBCProcAlive(pid_t pid) override;
  // The errno of the failed call; ENODATA for a key that is missing or a value that is empty.
  [[nodiscard]] int PLIBCErrGet() override { return last_error_.number(); }

 private:
  // Remembers the error of a failed call, sets errno to it and returns -1.
  int Fail(base::Errno error);

  base::Errno last_error_;
};

}  // namespace platform::host
