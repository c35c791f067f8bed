// One edge of the version graph: brings databases from one version to another.
#pragma once

#include <string>

#include "base/interface.h"
#include "updater/framework/version.h"

namespace updater {

class AbstractUpdater : public base::Interface {
 public:
  // Performs the upgrade. Returns 0, or a negative value on failure. Run at most once per object.
  [[nodiscard]] virtual int Update() { return -1; }
  // Called before Update() with the versions between which the updater's chain leads. What later
  // updaters of the chain drop does not have to be made.
  virtual void SetChain(const Version& /*start*/, const Version& /*end*/) {}
  [[nodiscard]] virtual Version GetFromVersion() const = 0;
  [[nodiscard]] virtual Version GetToVersion() const = 0;

  // Why Update() failed, in words of the updater; empty when it says nothing beyond the system log.
  [[nodiscard]] const std::string& GetLastError() const { return last_error_; }

 protected:
  std::string last_error_;
};

}  // namespace updater
