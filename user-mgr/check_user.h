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

// What the users of one check share. The state of the machine is asked for when it is first needed, and then
// stands for the whole check.
class CheckRun {
 public:
  explicit CheckRun(const platform::Platform& platform) : platform_(platform) {}

  [[nodiscard]] const platform::Platform& platform() const { return platform_; }
  [[nodiscard]] bool IsUserHomeEnabled();
  // Null, after logging, when the mount points cannot be read.
  [[nodiscard]] const MountPoints* Mounts();

  // Notes that the row of a user, whose account or share is gone, was removed. Returns 0, or -1 after logging
  // when the other users of its view cannot be looked for. Does not take the lock.
  [[nodiscard]] int NoteRemoval(const UserRecord& user, const char* why);

  DamagedRows damaged;
  std::list<RemovedUser> removed;  // by NoteRemoval, in this order

 private:
  const platform::Platform& platform_;
  std::optional<bool> user_home_enabled_;
  std::optional<MountPoints> mounts_;
};

// Each brings one user in line with the machine, or removes it. Returns 0, or -1 after logging; a question
// that the machine could not answer is a failure, never a reason to remove.
[[nodiscard]] int CheckShareUser(const UserRecord& user, CheckRun& run);
[[nodiscard]] int CheckNormalUser(const UserRecord& user, CheckRun& run);

// Tells, at level warning, that a user was removed, and why.
void ReportRemoval(const UserRecord& user, const char* why);

// Writes the folder that is synchronised for a view's user. Returns 0, or -1 after logging SQLite's message.
[[nodiscard]] int UpdateWatchPath(ViewId view_id, const std::string& watch_path);

}  // namespace user_mgr
