// The rules of the self-check for one user.
#pragma once

#include <list>
#include <optional>

#include "platform/platform.h"
#include "user-mgr/damaged_rows.h"
#include "user-mgr/mount_points.h"
#include "user-mgr/records.h"

namespace user_mgr {

// A user that a check removed, and why.
struct RemovedUser {
  UserRecord user;
  const char* why = "";
  bool shares_view = false;  // another user row named the same view when this one went
};

// What the users of one check share. The machine is asked for its state when that is first needed; the answer
// then holds for the whole check.
class CheckRun {
 public:
  explicit CheckRun(const platform::Platform& platform) : platform_(platform) {}

  [[nodiscard]] const platform::Platform& platform() const { return platform_; }
  [[nodiscard]] bool IsUserHomeEnabled();
  // Null, after logging, when the mount points cannot be read.
  [[nodiscard]] const MountPoints* Mounts();

  // Notes that the row of a user whose account or share is gone was removed. Fails, after logging, when the
  // other users of its view cannot be looked for. Does not take the lock.
  [[nodiscard]] bool NoteRemoval(const UserRecord& user, const char* why);

  DamagedRows damaged;
  std::list<RemovedUser> removed;  // by NoteRemoval, in this order

 private:
  const platform::Platform& platform_;
  std::optional<bool> user_home_enabled_;
  std::optional<MountPoints> mounts_;
};

// Each brings one user in line with the machine, or removes it. A failure is logged. When the machine cannot
// answer a question, the check fails: that is never a reason to remove a user.
[[nodiscard]] bool CheckShareUser(const UserRecord& user, CheckRun& run);
[[nodiscard]] bool CheckNormalUser(const UserRecord& user, CheckRun& run);

// Tells, at level warning, that a user was removed, and why.
void ReportRemoval(const UserRecord& user, const char* why);

// Writes the folder that is synchronised for a view's user. A failure is logged with SQLite's message.
[[nodiscard]] bool UpdateWatchPath(ViewId view_id, const std::string& watch_path);

}  // namespace user_mgr
