#include "user-mgr/damaged_rows.h"

#include <algorithm>

#include "user-mgr/user_rows.h"

namespace user_mgr {
namespace {

// Statements find users by view, by type or by name, so that a statement for a sound row may match a damaged
// row as well. Temporary triggers, which only this connection sees, make it pass over the damaged one.
constexpr char kCreateTable[] = "CREATE TEMP TABLE damaged_user (id INTEGER PRIMARY KEY);";
constexpr char kCreateTriggers[] =
    "CREATE TEMP TRIGGER keep_damaged_user BEFORE UPDATE ON main.user_table"
    " WHEN OLD.id IN (SELECT id FROM damaged_user) BEGIN SELECT raise(IGNORE); END;"
    "CREATE TEMP TRIGGER keep_damaged_user_row BEFORE DELETE ON main.user_table"
    " WHEN OLD.id IN (SELECT id FROM damaged_user) BEGIN SELECT raise(IGNORE); END;"
    "CREATE TEMP TRIGGER keep_damaged_user_session BEFORE DELETE ON main.session_table"
    " WHEN OLD.uid IN (SELECT id FROM damaged_user) BEGIN SELECT raise(IGNORE); END;"
    "CREATE TEMP TRIGGER keep_damaged_user_task BEFORE DELETE ON main.backup_task_table"
    " WHEN EXISTS (SELECT 1 FROM session_table WHERE sess_id = OLD.session AND uid IN (SELECT id FROM damaged_user))"
    " BEGIN SELECT raise(IGNORE); END;";
constexpr char kDrop[] =
    "DROP TRIGGER IF EXISTS temp.keep_damaged_user;"
    "DROP TRIGGER IF EXISTS temp.keep_damaged_user_row;"
    "DROP TRIGGER IF EXISTS temp.keep_damaged_user_session;"
    "DROP TRIGGER IF EXISTS temp.keep_damaged_user_task;"
    "DROP TABLE IF EXISTS temp.damaged_user;";

const char* Describe(Damage damage) {
  switch (damage) {
    case Damage::kViewId:
      return "view_id is no integer from 0 to 2^63-1";
    case Damage::kUid:
      return "uid is no integer from 0 to 2^32-1";
    case Damage::kName:
      return "name is no text, empty or holds a NUL";
    case Damage::kNone:
      break;
  }
  return "";
}

}  // namespace

bool DamagedRows::Find() {
  inserts_.clear();
  views_.clear();
  const bool complete = ForEachRow("EnumUser", kSelectUser, [this](sqlite3_stmt* row) {
    const Damage damage = DamageOf(row);
    views_.push_back(ColumnId(row, 2));
    if (damage == Damage::kNone) return true;
    const auto id = static_cast<long long>(ColumnId(row, 1));  // signed, as it stands in the table
    logger::ComponentLog(kComponent, logger::Level::kWarning,
                         "UserManager::SelfCheck: the row of id %lld in user_table is left alone: its %s\n",
                         id, Describe(damage));
    inserts_ += "INSERT OR IGNORE INTO temp.damaged_user VALUES (" + std::to_string(id) + ");";
    return true;
  });
  std::sort(views_.begin(), views_.end());
  return complete;
}

bool DamagedRows::MayBeShared(ViewId view) const {
  const auto [first, last] = std::equal_range(views_.begin(), views_.end(), view);
  return last - first > 1;
}

bool DamagedRows::Protect() const {
  return inserts_.empty() || ExecuteWithoutLock(kCreateTable + inserts_ + kCreateTriggers);
}

bool DamagedRows::Unprotect() const { return inserts_.empty() || ExecuteWithoutLock(kDrop); }

}  // namespace user_mgr
