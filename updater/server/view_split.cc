#include "updater/server/view_split.h"

#include <malloc.h>

#include <algorithm>

#include "db-util/database.h"
#include "db-util/execute.h"
#include "file-op/file_op.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/background_work.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"
#include "updater/server/new_databases.h"

namespace updater::server {
namespace {

// What needs nothing but the view, behind its rows.
std::string Finish(const std::string& indexes, const std::string& is_removed) {
  return indexes + CreateOtherViewIndexes() + sql::kCountVersionsWhere + is_removed + ";";
}

// The first views before the others, so that of two threads that fail the first one has the first view.
std::vector<ViewId> Share(const std::vector<ViewId>& views, std::size_t number, std::size_t shares) {
  const auto at = [&](std::size_t share) {
    return views.begin() + static_cast<std::ptrdiff_t>(views.size() * share / shares);
  };
  return {at(number), at(number + 1)};
}

}  // namespace

ViewSplit::ViewSplit(const PackagePaths& paths, const std::string& home_uuid, bool is_last_layout)
    : paths_(paths), home_uuid_(home_uuid), layout_(is_last_layout ? RebuiltLayout() : SplitLayout()) {}

ViewSplit::Layout ViewSplit::SplitLayout() {
  return {MakeViewImage(sql::kCreateSplitTables), sql::kSplitRows,
          Finish(CreateNodeAndVersionIndexes(), "attribute & 1")};
}

ViewSplit::Layout ViewSplit::RebuiltLayout() {
  return {MakeViewImage(sql::CreateRebuiltTables()), sql::kRebuiltRows,
          Finish(sql::CreateRebuiltIndexes(), "removed")};
}

bool ViewSplit::Run(const std::vector<ViewId>& views, std::size_t most) const {
  constexpr int kLeastShareKiB = 16 * 1024;  // with less, every view is attached too often
  const auto caches = static_cast<std::size_t>(std::max(DataCacheKiB() / kLeastShareKiB, 1));
  const std::size_t shares = std::min({most, caches, views.size()});
  (void)malloc_trim(0);  // what the page caches of others held is for those of the threads
  PartCounter counter("view", views.size(), 2);  // its rows, and its indexes
  const bool is_split = ForEachInBackground(shares, [&](std::size_t number) {
    return SplitSome(Share(views, number, shares), DataCacheKiB() / static_cast<int>(shares), counter);
  });
  lacks_memory_ = lacks_memory_ && !is_split && shares > 1;
  return is_split;
}

bool ViewSplit::SplitSome(const std::vector<ViewId>& views, int cache_kib, PartCounter& counter) const {
  db_util::Database db;
  if (!CheckView(OpenReader(paths_.data, cache_kib, db), views.front())) return false;
  ViewRows rows(cache_kib);
  rows.Begin(db.get(), views);
  return FillViews(db.get(), rows, views, counter) &&
         std::all_of(views.begin(), views.end(), [&](ViewId view) {
           const bool is_finished = FinishView(db.get(), view);
           counter.Next();
           return is_finished;
         });
}

bool ViewSplit::FillViews(sqlite3* db, ViewRows& rows, const std::vector<ViewId>& views,
                          PartCounter& counter) const {
  for (int pass = 0; pass < rows.passes(); ++pass) {
    if (!rows.BeginPass(db, pass).ok()) return FillAgain(db, views, counter);
    for (const ViewId view : views) {
      if (!FillView(db, rows, view, pass)) return false;
      if (pass + 1 == rows.passes()) counter.Next();
    }
  }
  return true;
}

// Rows that cannot be listed are looked up, so that a failure is that of the view which they belong to.
bool ViewSplit::FillAgain(sqlite3* db, const std::vector<ViewId>& views, PartCounter& counter) const {
  for (const ViewId view : views) {
    (void)file_op::FSRemoveTree(paths_.ViewFolder(std::to_string(view)), 0);  // it cannot be made if it stays
  }
  const ViewRows rows;
  return std::all_of(views.begin(), views.end(), [&](ViewId view) {
    counter.Next();
    return FillView(db, rows, view, 0);
  });
}

bool ViewSplit::AttachView(sqlite3* db, ViewId view) const {
  const std::string path = paths_.ViewDatabase(view);
  const db_util::Status status = AttachQuietly(db, "view_db", path);
  NoteMemory(status);
  return Check(CheckScript(status, AttachStatement("view_db", path)),
               "Failed to attach new view db for view %llu\n", view);
}

bool ViewSplit::DetachView(sqlite3* db, ViewId view) {
  return Check(ExecScript(db, "DETACH DATABASE view_db;"), "Failed to detach new view db for view %llu\n",
               view);
}

bool ViewSplit::FillView(sqlite3* db, const ViewRows& rows, ViewId view, int pass) const {
  return (pass > 0 || Check(CreateViewDatabase(paths_, view, paths_.data, layout_.image),
                            "Failed to create new view db for view %llu\n", view)) &&
         AttachView(db, view) && CopyRows(db, rows, view, pass) && DetachView(db, view);
}

bool ViewSplit::FinishView(sqlite3* db, ViewId view) const {
  return AttachView(db, view) && CheckView(db_util::Execute(db, InTransaction(layout_.finish)), view) &&
         DetachView(db, view);
}

bool ViewSplit::CopyRows(sqlite3* db, const ViewRows& rows, ViewId view, int pass) const {
  std::string copy;
  const bool is_formatted = FormatRows(copy, layout_.rows, rows, view);
  if (pass + 1 == rows.passes()) copy += sql::kCopyViewSettings;
  return CheckView(is_formatted ? db_util::Execute(db, InTransaction(copy)) : db_util::StatusOf(SQLITE_NOMEM),
                   view);
}

bool ViewSplit::FormatRows(std::string& out, const sql::RowLayout& columns, const ViewRows& from,
                           ViewId view) const {
  const auto& [attributes, committer] = columns;
  return db_util::FormatSql(out, sql::kCopyViewRows, attributes, home_uuid_, committer, home_uuid_,
                            home_uuid_, from.From("node_table", view), attributes, home_uuid_, committer,
                            home_uuid_, from.From("version_table", view), from.all_columns(),
                            from.From("tree_table", view));
}

void ViewSplit::NoteMemory(const db_util::Status& status) const {
  if (status.code == SQLITE_NOMEM) lacks_memory_ = true;
}

// The log shows all that is done for a view as one script.
bool ViewSplit::CheckView(const db_util::Status& status, ViewId view) const {
  if (status.ok()) return true;
  NoteMemory(status);
  std::string logged;
  if (FormatRows(logged, sql::kSplitRows, ViewRows(), view)) {
    (void)CheckScript(status, logged + sql::kCopyViewSettings + sql::kCountVersionsWhere + "attribute & 1; ");
  }
  (void)Check(false, "Failed to dump record from data_db to view_db for view %llu\n", view);
  return Check(false, "Failed to update view db for view %llu\n", view);
}

}  // namespace updater::server
