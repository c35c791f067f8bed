// The backup tasks of sessions.
#include "db-util/query.h"
#include "user-mgr/script.h"
#include "user-mgr/user_manager.h"
#include "user-mgr/user_rows.h"

namespace user_mgr {
namespace {

constexpr char kSelectTask[] = "SELECT view_id, session, relative_path, is_readonly FROM backup_task_table";

bool ReadTask(sqlite3_stmt* row, BackupTask& task) {
  task.view_id = ColumnId(row, 0);
  task.session = db_util::ColumnText(row, 1);
  task.relative_path = db_util::ColumnText(row, 2);
  task.is_readonly = sqlite3_column_int(row, 3);
  return true;
}

bool ReadPath(sqlite3_stmt* row, std::string& path) {
  path = db_util::ColumnText(row, 0);
  return true;
}

}  // namespace

int UserManager::EnumBackupTask(std::list<BackupTask>& tasks) {
  return ToResult(ReadList<BackupTask>("EnumBackupTask", kSelectTask, &ReadTask, tasks));
}

int UserManager::EnumBackupTask(const std::string& session, std::list<BackupTask>& tasks) {
  Script query(kSelectTask);
  query.Add(" WHERE session = %Q", session);
  return ToResult(ReadList<BackupTask>("EnumBackupTask", query.text(), &ReadTask, tasks));
}

int UserManager::SetBackupTask(const std::string& session, const std::list<BackupTask>& tasks) {
  Script script("BEGIN TRANSACTION;");
  script.Add("DELETE FROM backup_task_table WHERE session = %Q;", session);
  for (const BackupTask& task : tasks) {
    script.Add(
        "INSERT INTO backup_task_table (session, view_id, relative_path, is_readonly) VALUES (%Q, %llu, %Q, %d);",
        session, task.view_id, task.relative_path, task.is_readonly);
  }
  script.Add("END TRANSACTION;");
  return ToResult(Check(Execute(script.text()), "UserManager::SetBackupTask fail for session %s\n", session));
}

int UserManager::EnumConflictPath(const std::string& session, ViewId view_id,
                                  std::list<std::string>& relative_paths) {
  Script query("SELECT relative_path FROM backup_task_table WHERE");
  if (!session.empty()) query.Add(" session != %Q AND", session);
  query.Add(" view_id = %llu", view_id);
  return ToResult(ReadList<std::string>("EnumConflictPath", query.text(), &ReadPath, relative_paths));
}

}  // namespace user_mgr
