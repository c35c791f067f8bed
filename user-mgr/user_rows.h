// Reading rows of users.
#pragma once

#include "user-mgr/records.h"
#include "user-mgr/statement.h"

namespace user_mgr {

// What most queries of users begin with; a condition may follow.
inline constexpr char kSelectUser[] =
    "SELECT name, id, view_id, attribute, uid, gid, user_type, watch_path FROM user_table ";

// Numbers of users as they stand in a table that may hold anything. A value outside the range of the field
// must not become the number of another user.
[[nodiscard]] unsigned ColumnUnsigned(sqlite3_stmt* row, int column);  // beyond 32 bits: the highest number
[[nodiscard]] UserType ColumnUserType(sqlite3_stmt* row, int column);  // not an integer of 32 bits: -1
[[nodiscard]] ViewId ColumnId(sqlite3_stmt* row, int column);

// Both take a row whose first columns are those of kSelectUser.
[[nodiscard]] Damage DamageOf(sqlite3_stmt* row);
// Returns false when the row is to be left out.
[[nodiscard]] bool ReadUser(sqlite3_stmt* row, UserRecord& user);

// The same with name and watch path cut in the middle where they are longer than any path. What the check
// does with a user is the same: such a name fits no statement, and such a path is none.
[[nodiscard]] bool ReadShortUser(sqlite3_stmt* row, UserRecord& user);

// Makes the name of a record from the stored name: a share user loses its "@". Returns false, with a warning,
// for a share user that has none.
[[nodiscard]] bool ReadName(sqlite3_stmt* row, int column, UserType type, std::string& name);

// Lists the users of a query that begins with the columns of kSelectUser.
[[nodiscard]] bool EnumUser(const std::string& query, UserList& users);

}  // namespace user_mgr
