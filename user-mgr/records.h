// What the rows of the user database mean.
#pragma once

#include <list>
#include <string>

#include "base/view_id.h"

namespace user_mgr {

using base::ViewId;

// The kind of account that a user is. Rows may hold other numbers; they are kept as they are, and a value
// that is no number of 32 bits reads as -1.
enum class UserType : int {
  kNormal = 0,
  kShare = 1,  // the "user" of a shared folder
  kLdap = 2,
  kDomain = 3,
};

// Bits of the user table's attribute. Users with kDisabled or kSuspended are not enabled.
inline constexpr int kDisabled = 1;
inline constexpr int kExpired = 2;    // mirrors the account; the self-check sets and clears it
inline constexpr int kSuspended = 8;  // a share user with it may hold mount points

// Bits of the profile table's attribute.
inline constexpr int kDefaultProfile = 2;

// The column of a user row that holds what it must not. A view_id is an integer from 0 to 2^63-1, a uid one
// from 0 to 2^32-1, and a name is a text that is not empty and has no NUL (of a share user, behind the "@").
// SQLite turns any other value into the number or name of somebody else, so no code may act on such a record.
enum class Damage { kNone, kViewId, kUid, kName };

// One row of user_table.
//
// The table stores a share user as "@" and the name of the share ("stored name"); records hold the share's
// name alone. A share user that is stored without "@" is left out of every result, with a warning.
struct UserRecord {
  std::string name;
  unsigned long long id = 0;
  ViewId view_id = 0;
  int attribute = 0;
  unsigned uid = 0;
  unsigned gid = 0;
  UserType user_type = UserType::kNormal;
  std::string watch_path;         // the folder that is synchronised for this user
  Damage damage = Damage::kNone;  // the first damaged column, in this order
};
using UserList = std::list<UserRecord>;

// The name under which the table stores a user.
[[nodiscard]] inline std::string StoredName(UserType type, const std::string& name) {
  return type == UserType::kShare ? "@" + name : name;
}

// One row of session_table with its user; `name` as in UserRecord.
struct SessionRecord {
  ViewId view_id = 0;
  std::string name;
  int attribute = 0;  // the user's
  long long ctime = 0;
  std::string client;
  std::string ip;
  std::string sess_id;
  int group_id = 0;
  unsigned uid = 0;
  unsigned gid = 0;
  UserType user_type = UserType::kNormal;
  std::string watch_path;
  int client_type = 0;
  std::string client_platform;
};

// What a client says of itself when it opens or renews a session.
struct ClientInfo {
  std::string sess_id;
  std::string client;
  int client_type = 0;
  std::string client_platform = "Unknown";
};

enum class SessionOrder { kUserName, kClient, kIp, kCreationTime, kClientType, kClientPlatform };
enum class Direction { kAscending, kDescending };

// One page of the sessions.
struct SessionPage {
  SessionOrder order = SessionOrder::kCreationTime;
  Direction direction = Direction::kAscending;
  unsigned limit = 0;
  unsigned offset = 0;
};

struct BackupTask {
  ViewId view_id = 0;
  std::string session;
  std::string relative_path;
  int is_readonly = 0;
};

// How many versions of a file a view keeps. View 0 stands for all ordinary user views.
struct RotateSetting {
  ViewId view_id = 0;
  int rotate_cnt = 0;
  std::string rotate_policy;
};

struct Profile {
  unsigned long long id = 0;
  std::string name;
  std::string context;  // JSON
  int attribute = 0;
};

// A profile applied to the account with this uid.
struct ProfileApply {
  unsigned user_id = 0;
  unsigned long long profile_id = 0;
};

// What CommitProfile writes, in this order.
struct ProfileChanges {
  struct Apply {
    unsigned long long profile_id = 0;
    std::list<unsigned> user_ids;
  };
  struct ViewProfiles {
    ViewId view_id = 0;
    int attribute_mask = 0;
  };

  std::list<Profile> modified;  // replace the rows of their ids; the attribute becomes 0, its default
  std::list<Profile> added;     // have a name and a context; SQLite gives them ids
  std::list<unsigned long long> removed;  // go with their applications to accounts
  std::list<Apply> applied;               // give a profile these accounts in place of all others
  std::list<ViewProfiles> views;          // give a view the profiles that have one of the bits
};

// A user and one profile that applies to it.
struct UserProfile {
  UserRecord user;
  unsigned long long profile_id = 0;
};

}  // namespace user_mgr
