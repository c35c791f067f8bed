// The user rows that the self-check leaves alone, because what they hold could be taken for somebody else's.
#pragma once

#include <string>
#include <vector>

#include "user-mgr/records.h"

namespace user_mgr {

class DamagedRows {
 public:
  // Finds them, with a warning for each. Returns 0, or -1 after logging SQLite's message.
  [[nodiscard]] int Find();

  // From Protect to Unprotect every statement of this connection passes over these rows, their sessions and
  // the backup tasks of these: it neither changes nor removes them. Nothing happens when there are no such
  // rows. What Protect makes belongs to the transaction that is open, if any. Both return 0, or -1 after
  // logging SQLite's message.
  [[nodiscard]] int Protect() const;
  [[nodiscard]] int Unprotect() const;

  // False when no two rows named the view at the time of Find: nobody has to ask the table again then.
  [[nodiscard]] bool MayBeShared(ViewId view) const;

 private:
  std::string inserts_;        // statements that note the ids
  std::vector<ViewId> views_;  // of all rows, sorted
};

}  // namespace user_mgr
