#include "updater/framework/views.h"

#include <algorithm>
#include <cerrno>

#include "db-util/query.h"
#include "file-op/file_op.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/run_observer.h"
#include "updater/framework/updater_log.h"

namespace updater {
namespace {

bool ForEachIn(const PackagePaths& paths, const std::string& folder, const char* part,
               std::string (PackagePaths::*database)(const std::string&) const,
               const std::function<bool(const std::string&)>& work) {
  std::vector<std::string> names;
  const int listed = file_op::ListFolders(folder, names);
  if (listed < 0 && errno == ENOENT) return true;
  if (!logger::CheckErrno(listed, "cannot list %s: %s (%d)\n", folder)) return false;
  PartCounter counter(part, names.size());
  return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
    const bool went_well = work((paths.*database)(name));
    counter.Next();
    return went_well;
  });
}

}  // namespace

bool ReadViewIds(sqlite3* db, std::vector<ViewId>& views) {
  views.clear();
  const db_util::Status status =
      db_util::ForEachRow(db, "SELECT view_id FROM user_table;", [&views](sqlite3_stmt* row) {
        views.push_back(static_cast<ViewId>(sqlite3_column_int64(row, 0)));
        return true;
      });
  if (!status.ok()) UpdaterLog("%s\n", DescribeUserQuery(status));
  return status.ok();
}

std::string DescribeUserQuery(const db_util::Status& failure) {
  const std::string text = failure.FailedCall() + (": " + failure.message);
  return failure.call == db_util::Status::Call::kPrepare ? text + " (" + std::to_string(failure.code) + ")"
                                                         : text;
}

bool ForEachView(sqlite3* db, const std::function<bool(ViewId)>& work) {
  std::vector<ViewId> views;
  if (!Check(ReadViewIds(db, views), "Failed to get all views\n")) return false;
  PartCounter counter("view", views.size());
  for (const ViewId view : views) {
    if (!work(view)) return false;
    counter.Next();
  }
  return true;
}

bool ForEachFolderDatabase(const PackagePaths& paths, const std::function<bool(const std::string&)>& work) {
  return ForEachIn(paths, paths.view_folder, "view", &PackagePaths::ViewDatabase, work) &&
         ForEachIn(paths, paths.file_folder, "volume", &PackagePaths::FileDatabase, work);
}

int ExecOnView(sqlite3* db, const PackagePaths& paths, ViewId view, const std::string& body) {
  return ExecAttached(db, "view_db", paths.ViewDatabase(view), body);
}

}  // namespace updater
