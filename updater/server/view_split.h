// Makes the database of every view from the data database.
//
// The views are shared out among threads. Each thread has a connection of its own, copies the rows of all its
// views, and then makes the indexes of one view after the other.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <string>
#include <vector>

#include "db-util/status.h"
#include "package/layout.h"
#include "updater/framework/run_observer.h"
#include "updater/framework/views.h"
#include "updater/server/sql/split.h"
#include "updater/server/view_rows.h"

namespace updater::server {

class ViewSplit {
 public:
  // With `is_last_layout` the views get nodes and versions in the layout that a later updater makes.
  // `home_uuid` is that of the volume that holds the sync folder.
  ViewSplit(const PackagePaths& paths, const std::string& home_uuid, bool is_last_layout);

  // Splits paths.data, which nobody else has open, with `most` threads at most, into databases that are not
  // there yet. Returns whether all views are made; what a thread fails at is logged, of several threads what
  // the first one fails at.
  [[nodiscard]] bool Run(const std::vector<ViewId>& views, std::size_t most) const;

  // Whether several threads have failed, and fewer may do.
  [[nodiscard]] bool lacks_memory() const { return lacks_memory_; }

 private:
  // How the views keep nodes and versions.
  struct Layout {
    std::string image;  // of MakeViewImage()
    sql::RowLayout rows;
    std::string finish;  // the script behind the rows
  };
  static Layout SplitLayout();
  static Layout RebuiltLayout();

  [[nodiscard]] bool SplitSome(const std::vector<ViewId>& views, int cache_kib, PartCounter& counter) const;
  [[nodiscard]] bool FillViews(sqlite3* db, ViewRows& rows, const std::vector<ViewId>& views,
                               PartCounter& counter) const;
  [[nodiscard]] bool FillAgain(sqlite3* db, const std::vector<ViewId>& views, PartCounter& counter) const;
  [[nodiscard]] bool AttachView(sqlite3* db, ViewId view) const;
  [[nodiscard]] static bool DetachView(sqlite3* db, ViewId view);
  [[nodiscard]] bool FillView(sqlite3* db, const ViewRows& rows, ViewId view, int pass) const;
  [[nodiscard]] bool FinishView(sqlite3* db, ViewId view) const;
  [[nodiscard]] bool CopyRows(sqlite3* db, const ViewRows& rows, ViewId view, int pass) const;
  [[nodiscard]] bool FormatRows(std::string& out, const sql::RowLayout& columns, const ViewRows& from,
                                ViewId view) const;
  void NoteMemory(const db_util::Status& status) const;
  [[nodiscard]] bool CheckView(const db_util::Status& status, ViewId view) const;

  const PackagePaths& paths_;
  std::string home_uuid_;
  Layout layout_;
  mutable std::atomic<bool> lacks_memory_ = false;
};

}  // namespace updater::server
