#include "user-mgr/user_rows.h"

#include <climits>
#include <limits>
#include <utility>

#include "db-util/query.h"
#include "logger/log_sink.h"

namespace user_mgr {
namespace {

template <typename Number>
bool IsNumber(sqlite3_stmt* row, int column) {
  return sqlite3_column_type(row, column) == SQLITE_INTEGER &&
         std::in_range<Number>(sqlite3_column_int64(row, column));
}

bool IsName(sqlite3_stmt* row, int column, int type_column) {
  std::string name;
  return db_util::ReadWholeText(row, column, name) && !name.empty() &&
         (name != "@" || ColumnUserType(row, type_column) != UserType::kShare);
}

}  // namespace

unsigned ColumnUnsigned(sqlite3_stmt* row, int column) {
  const sqlite3_int64 value = sqlite3_column_int64(row, column);
  // A negative 32-bit number is an id that some program wrote as a signed one.
  const bool fits = value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<unsigned>::max();
  return fits ? static_cast<unsigned>(value) : std::numeric_limits<unsigned>::max();
}

UserType ColumnUserType(sqlite3_stmt* row, int column) {
  const sqlite3_int64 value = sqlite3_column_int64(row, column);
  const bool fits = sqlite3_column_type(row, column) == SQLITE_INTEGER &&
                    value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
  return static_cast<UserType>(fits ? static_cast<int>(value) : -1);
}

ViewId ColumnId(sqlite3_stmt* row, int column) {
  return static_cast<ViewId>(sqlite3_column_int64(row, column));
}

bool ReadName(sqlite3_stmt* row, int column, UserType type, std::string& name) {
  name = db_util::ColumnText(row, column);
  if (type != UserType::kShare) return true;
  if (!name.starts_with('@')) {
    const bool known = sqlite3_column_type(row, column) != SQLITE_NULL;
    logger::ComponentLog(kComponent, logger::Level::kWarning,
                         "UserManager::EnumShareUser: skipping share user '%s'\n",
                         known ? name : std::string("(unknown)"));
    return false;
  }
  name.erase(0, 1);
  return true;
}

Damage DamageOf(sqlite3_stmt* row) {
  if (!IsNumber<ViewId>(row, 2)) return Damage::kViewId;
  if (!IsNumber<unsigned>(row, 4)) return Damage::kUid;
  return IsName(row, 0, 6) ? Damage::kNone : Damage::kName;
}

bool ReadUser(sqlite3_stmt* row, UserRecord& user) {
  user.damage = DamageOf(row);  // first, because reading a column as another type may change its type
  user.id = ColumnId(row, 1);
  user.view_id = ColumnId(row, 2);
  user.attribute = sqlite3_column_int(row, 3);
  user.uid = ColumnUnsigned(row, 4);
  user.gid = ColumnUnsigned(row, 5);
  user.user_type = ColumnUserType(row, 6);
  user.watch_path = db_util::ColumnText(row, 7);
  return ReadName(row, 0, user.user_type, user.name);
}

bool ReadShortUser(sqlite3_stmt* row, UserRecord& user) {
  const bool is_user = ReadUser(row, user);
  for (std::string* text : {&user.name, &user.watch_path}) {
    if (text->size() > PATH_MAX) *text = logger::CutInTheMiddle(*text, PATH_MAX);
  }
  return is_user;
}

bool EnumUser(const std::string& query, UserList& users) {
  return ReadList<UserRecord>("EnumUser", query, &ReadUser, users);
}

}  // namespace user_mgr
