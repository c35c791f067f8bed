// The user rows that the self-check leaves alone, because SQLite would take what they hold for the number or
// the name of another user. A step that fails here has logged SQLite's message.
#pragma once

#include <string>
#include <vector>

#include "user-mgr/records.h"

namespace user_mgr {

class DamagedRows {
 public:
  // Finds them, with a warning for each.
  [[nodiscard]] bool Find();

  // From Protect to Unprotect every statement of this connection passes over these rows, their sessions and
  // the backup tasks of these: it neither changes nor removes them. Both do nothing when there are no such
  // rows. What Protect makes belongs to the transaction that is open, if any.
  [[nodiscard]] bool Protect() const;
  [[nodiscard]] bool Unprotect() const;

  // False when no two rows named the view at the time of Find. The table need not be asked again then.
  [[nodiscard]] bool MayBeShared(ViewId view) const;

 private:
  std::string inserts_;        // statements that note the ids
  std::vector<ViewId> views_;  // of all rows, sorted
};

}  // namespace user_mgr
