// The package's access to its data database and its view databases, as other programs of the package see it.
//
// There is one manager per process, and all of its state is static. The declarations here are the interface;
// the implementation is chosen when the program is linked. Operations return 0 on success and a negative
// value on failure, after logging the reason through the component logger under "db_debug".
#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/view_id.h"
#include "db/view_db_interface.h"

namespace db {

using base::ViewId;

class Manager {
 public:
  Manager() = delete;

  // Opens the data database of `folder` (the sync folder) for reading and writing. It is not created: a
  // missing file, or one that is not a data database, is a failure. A manager that is already open is closed
  // first.
  [[nodiscard]] static int Initialize(const std::string& folder);

  // Closes the data database and every view database that is still open; those that callers still hold fail
  // from then on. `flag` has no meaning to this implementation; callers pass false. Safe when not open.
  static void Destroy(bool flag);

  // The volume table: uuid → path of the sync folder on that volume. A uuid that is NULL reads as empty. Rows
  // with a uuid or a path that is no text or holds a NUL are left out, with a warning, because what SQLite
  // makes of them may name another volume. `volumes` is replaced on success only.
  [[nodiscard]] static int EnumVolumeTable(std::map<std::string, std::string>& volumes);

  // Removes the row of the uuid from the volume table; of an empty uuid, every row whose uuid is empty or
  // NULL. A uuid that no row has is success.
  [[nodiscard]] static int DeleteUuidFromVolumeTable(const std::string& uuid);

  // Opens the database of one view. It is not created: a missing file, or one that is not a view database of
  // the current layout, is a failure with `view_db` unchanged. It closes with its last holder, or with
  // Destroy.
  [[nodiscard]] static int GetViewDB(ViewId view_id, std::shared_ptr<ViewDBInterface>& view_db);

  // Closes the view's database and removes its folder with everything in it; links are removed, not followed.
  // A folder that does not exist is success. One line at level warning tells the result, whatever it is.
  [[nodiscard]] static int DeleteView(ViewId view_id);
};

}  // namespace db
