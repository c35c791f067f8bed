// The shared folders of the machine.
#pragma once

#include <string>
#include <vector>

#include "base/interface.h"
#include "platform/lookup.h"

namespace platform {

struct Share {
  std::string name;
  std::string path;
  bool is_replica = false;         // the answer to the replica query
  std::vector<std::string> flags;  // "dhos", "share_replica_demote", ...
};

class Shares : public base::Interface {
 public:
  // Names are compared without regard to case.
  [[nodiscard]] virtual Lookup Open(const std::string& name, Share& share) = 0;
};

}  // namespace platform
