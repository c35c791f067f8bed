// The shared folders, as the file server's configuration has them.
//
// A share is a section with a path, other than global, homes, printers and print$. It answers yes to the
// replica query with `plat:replica = yes`; its flags are the words of `plat:flags`.
#pragma once

#include <string>

#include "platform/host/samba_configuration.h"
#include "platform/shares.h"
#include "platform/system_paths.h"

namespace platform::host {

class HostShares : public Shares {
 public:
  explicit HostShares(const SystemPaths& paths) : path_(paths.samba) {}

  // The configuration is read once, and again when a file has changed; of more than sixteen files some calls
  // later.
  //
  // No configuration file: there are no shares. A file that is there but cannot be read or is not in the form
  // fails; so does a name that is not found while a part of the configuration is out of reach.
  [[nodiscard]] Lookup Open(const std::string& name, Share& share) override;

 private:
  [[nodiscard]] bool IsCurrent();

  std::string path_;
  SambaConfiguration configuration_;  // kept from one call to the next
  std::size_t unchecked_ = 0;         // calls since the files of the configuration were looked at
};

}  // namespace platform::host
