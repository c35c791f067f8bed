// How many versions the views keep.
#include "db-util/query.h"
#include "user-mgr/script.h"
#include "user-mgr/user_manager.h"
#include "user-mgr/user_rows.h"

namespace user_mgr {
namespace {

bool ReadSetting(sqlite3_stmt* row, RotateSetting& setting) {
  setting.rotate_cnt = sqlite3_column_int(row, 0);
  setting.rotate_policy = db_util::ColumnText(row, 1);
  return true;
}

}  // namespace

int UserManager::SetRotateSetting(const std::list<RotateSetting>& settings) {
  if (settings.empty()) return 0;
  Script script("INSERT OR REPLACE INTO rotate_setting_table (view_id, rotate_cnt, rotate_policy) VALUES ");
  const char* separator = "";
  for (const RotateSetting& setting : settings) {
    script.Add("%s(%llu, %d, %Q)", separator, setting.view_id, setting.rotate_cnt, setting.rotate_policy);
    separator = ", ";
  }
  return ToResult(Check(Execute(script.text()), "UserManager::SetRotateSetting fail\n"));
}

int UserManager::GetRotateSetting(ViewId view_id, RotateSetting& setting) {
  Script query("SELECT rotate_cnt, rotate_policy FROM rotate_setting_table WHERE view_id = ");
  query.Add("%llu", view_id);
  std::list<RotateSetting> found;
  const bool taken =
      ReadList<RotateSetting>("GetRotateSetting", query.text(), &ReadSetting, found) &&
      TakeFirst(found, setting, "UserManager::GetRotateSetting: view %llu has no setting\n", view_id);
  if (taken) setting.view_id = view_id;
  return ToResult(taken);
}

}  // namespace user_mgr
