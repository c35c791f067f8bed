// One open view database.
#pragma once

#include <string>

#include "base/interface.h"

namespace db {

class ViewDBInterface : public base::Interface {
 public:
  // Removes everything that lies on the volume `uuid`, in one transaction: versions stored there; nodes whose
  // current file is there, with their other versions and their places in the tree; queued removals. Deltas
  // and mac attributes of other rows that point there are cleared, and version counts follow. Rows of other
  // volumes stay as they are. A uuid that nothing refers to is success; an empty one never refers to
  // anything, least of all to rows without a uuid.
  [[nodiscard]] virtual int DeleteRecordWithUuid(const std::string& uuid) = 0;
};

}  // namespace db
