// Which rows of the data database are whose, for the split, which copies them to the database of each view.
//
// The rows of all views lie mixed in the same tables, so those of one view are on nearly every page. Looked
// up for one view after the other, a table larger than the page cache would be read as often as there are
// views. So the views are filled in several passes, each over as much of the tables as the cache holds, and
// at the beginning of each the numbers of its rows are sorted by view.
#pragma once

#include <sqlite3.h>

#include <map>
#include <string>
#include <vector>

#include "db-util/status.h"
#include "updater/framework/views.h"

namespace updater::server {

class ViewRows {
 public:
  // `cache_kib` is the page cache of data_db.
  explicit ViewRows(int cache_kib = 0) : cache_kib_(cache_kib) {}

  // Begins the first pass over the attached data_db, for these views. Where its tables are not quite those of
  // the package, or something fails, there is one pass, which looks rows up as before Begin(): right for any
  // table, and whoever reads what is damaged or missing fails.
  void Begin(sqlite3* db, const std::vector<ViewId>& views);

  [[nodiscard]] int passes() const { return passes_; }

  // To be called for every pass in turn, with the connection of Begin(). A failure leaves the views half
  // filled.
  [[nodiscard]] db_util::Status BeginPass(sqlite3* db, int pass);

  // What stands behind FROM to read the rows of a view in node_table, version_table or tree_table: those of
  // the pass, as they are stored. Before Begin() it is all of them, in the words of the log. Empty when
  // SQLite could not make the text.
  [[nodiscard]] std::string From(const char* table, ViewId view) const;
  // All columns of such a table.
  [[nodiscard]] const char* all_columns() const { return last_rows_.empty() ? "*" : "stored.*"; }

 private:
  [[nodiscard]] db_util::Status Measure(sqlite3* db);
  [[nodiscard]] db_util::Status ListRows(sqlite3* db) const;

  int cache_kib_;
  int passes_ = 1;
  int pass_ = 0;
  // By table the largest number of a row; empty before Begin().
  std::map<std::string, sqlite3_int64> last_rows_;
};

}  // namespace updater::server
