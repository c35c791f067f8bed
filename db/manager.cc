#include "db/manager.h"

#include <map>

#include "base/errno.h"
#include "db-util/execute.h"
#include "db-util/query.h"
#include "db/component.h"
#include "db/database_layout.h"
#include "db/view_db.h"
#include "file-op/file_op.h"
#include "package/layout.h"

namespace db {
namespace {

constexpr const char* kDataTables = "'volume_table', 'config_table'";
constexpr int kDataTableCount = 2;

struct State {
  package::PackagePaths paths;
  db_util::Database data;
  std::multimap<ViewId, std::weak_ptr<SqliteViewDb>> views;  // those handed out
};

State& GetState() {
  static State state;
  return state;
}

void CloseView(ViewId view_id) {
  const auto [begin, end] = GetState().views.equal_range(view_id);
  for (auto handed_out = begin; handed_out != end; ++handed_out) {
    if (const std::shared_ptr<SqliteViewDb> view = handed_out->second.lock()) view->Close();
  }
  GetState().views.erase(begin, end);
}

}  // namespace

int Manager::Initialize(const std::string& folder) {
  Destroy(false);
  package::PackagePaths paths = package::PathsInSyncFolder(folder);
  db_util::Database data;
  const db_util::Status status = db_util::OpenQuietly(paths.data, data, db_util::OpenMode::kReadWrite);
  if (!Check(status, "Initialize: cannot open %s: %s (%d)\n", paths.data, status.message, status.code)) {
    return -1;
  }
  (void)sqlite3_busy_timeout(data.get(), db_util::kBusyTimeoutMs);  // cannot fail on an open connection
  if (!HasLayout(data.get(), paths.data, kDataTables, kDataTableCount)) return -1;
  GetState().paths = std::move(paths);
  GetState().data = std::move(data);
  return 0;
}

void Manager::Destroy(bool /*flag*/) {
  while (!GetState().views.empty()) CloseView(GetState().views.begin()->first);
  GetState().data.reset();
  GetState().paths = {};
}

int Manager::EnumVolumeTable(std::map<std::string, std::string>& volumes) {
  if (!GetState().data) return -1;
  std::map<std::string, std::string> found;
  const db_util::Status status = db_util::ForEachRow(
      GetState().data.get(), "SELECT uuid, repo_path FROM volume_table;", [&found](sqlite3_stmt* row) {
        std::string uuid;
        std::string path;
        if (!db_util::ReadWholeTextOrNull(row, 0, uuid) || !db_util::ReadWholeText(row, 1, path)) {
          logger::ComponentLog(
              kComponent, logger::Level::kWarning,
              "EnumVolumeTable: the row of uuid '%s' and path '%s' is damaged and left alone\n",
              db_util::ColumnText(row, 0), db_util::ColumnText(row, 1));
          return true;
        }
        found.insert_or_assign(std::move(uuid), std::move(path));
        return true;
      });
  if (!Check(status, "EnumVolumeTable: %s (%d)\n", status.message, status.code)) return -1;
  volumes = std::move(found);
  return 0;
}

int Manager::DeleteUuidFromVolumeTable(const std::string& uuid) {
  if (!GetState().data) return -1;
  std::string statement;
  const bool formatted =
      uuid.empty()
          ? db_util::FormatSql(statement, "DELETE FROM volume_table WHERE uuid = '' OR uuid IS NULL;")
          : db_util::FormatSql(statement, "DELETE FROM volume_table WHERE uuid = %Q;", uuid);
  if (!formatted) return -1;
  const db_util::Status status = db_util::Execute(GetState().data.get(), statement);
  return logger::ToResult(Check(status, "DeleteUuidFromVolumeTable: %s (%d)\n", status.message, status.code));
}

int Manager::GetViewDB(ViewId view_id, std::shared_ptr<ViewDBInterface>& view_db) {
  if (!GetState().data) return -1;
  std::shared_ptr<SqliteViewDb> opened = SqliteViewDb::Open(GetState().paths.ViewDatabase(view_id));
  if (!opened) return -1;
  std::erase_if(GetState().views, [](const auto& handed_out) { return handed_out.second.expired(); });
  GetState().views.emplace(view_id, opened);
  view_db = std::move(opened);
  return 0;
}

int Manager::DeleteView(ViewId view_id) {
  if (!GetState().data) return -1;
  CloseView(view_id);
  const std::string folder = GetState().paths.ViewFolder(std::to_string(view_id));
  std::string outcome = file_op::FSExists(folder) ? "deleted" : "it was not there";
  const int result = file_op::FSRemoveTree(folder, 0);
  if (result < 0) outcome = "cannot be deleted: " + base::Errno::Last().Text();
  logger::ComponentLog(kComponent, logger::Level::kWarning, "DeleteView: view %llu (%s): %s\n", view_id,
                       folder, outcome);
  return result;
}

}  // namespace db
