#include "updater/server/view_rows.h"

#include <algorithm>
#include <array>
#include <limits>

#include "db-util/execute.h"
#include "db-util/query.h"

namespace updater::server {
namespace {

constexpr const char* kNodes = "node_table";
constexpr std::array kTables = {kNodes, "version_table", "tree_table"};

// Whether numbers are compared as numbers, and every row is known by its number. There are five such columns
// in the package's tables; one with a name of the row's number would be read in its place.
constexpr const char* kIsPackageLayout =
    "SELECT sum(type LIKE '%int%' AND name IN ('node_id', 'view_id', 'ver_id')) = 5 AND "
    "NOT sum(lower(name) IN ('rowid', 'oid', '_rowid_')) FROM "
    "(SELECT name, type FROM pragma_table_info('node_table', 'data_db') UNION ALL "
    "SELECT name, type FROM pragma_table_info('version_table', 'data_db') UNION ALL "
    "SELECT name, type FROM pragma_table_info('tree_table', 'data_db'));";

// What is read of the nodes, which are many times larger.
constexpr const char* kListViews =
    "CREATE TEMP TABLE split_views (node_id INTEGER, view_id INTEGER, PRIMARY KEY (node_id, view_id)) WITHOUT ROWID;"
    "INSERT OR IGNORE INTO temp.split_views SELECT node_id, view_id FROM data_db.node_table "
    "WHERE node_id IS NOT NULL AND view_id IS NOT NULL;";
constexpr const char* kCreateList =
    "CREATE TEMP TABLE split_%s (of_view INTEGER, stored_row INTEGER, PRIMARY KEY (of_view, stored_row)) "
    "WITHOUT ROWID;";
constexpr const char* kListNodes =
    "INSERT INTO temp.split_%s SELECT view_id, rowid FROM data_db.%s WHERE view_id IS NOT NULL "
    "ORDER BY view_id, rowid;";
constexpr const char* kListOthers =
    "INSERT OR IGNORE INTO temp.split_%s SELECT nodes.view_id, stored.rowid FROM data_db.%s AS stored "
    "CROSS JOIN temp.split_views AS nodes ON nodes.node_id = stored.node_id "
    "ORDER BY nodes.view_id, stored.rowid;";

constexpr const char* kAllNodes = "data_db.node_table WHERE data_db.node_table.view_id = %lld";
constexpr const char* kAllOthers =
    "data_db.%s WHERE node_id IN "
    "(SELECT node_id FROM data_db.node_table WHERE data_db.node_table.view_id = %lld)";
constexpr const char* kListed =
    "temp.split_%s AS mine CROSS JOIN data_db.%s AS stored ON stored.rowid = mine.stored_row "
    "WHERE mine.of_view = %lld AND mine.stored_row BETWEEN %lld AND %lld";

constexpr const char* kPages = "PRAGMA data_db.page_count;";
constexpr const char* kFreePages = "PRAGMA data_db.freelist_count;";
constexpr const char* kPageSize = "PRAGMA data_db.page_size;";

const std::string kCacheSize = "PRAGMA temp.cache_size = -" + std::to_string(kDataCacheKiB / 6) + ";";

bool IsNodes(const char* table) { return table == std::string_view(kNodes); }

template <typename... Args>
std::string Text(const logger::SqlFormat<Args...>& format, const Args&... args) {
  std::string text;
  if (!db_util::FormatSql<Args...>(text, format, args...)) text.clear();
  return text;
}

}  // namespace

void ViewRows::Sort(sqlite3* db) {
  int is_package_layout = 0;
  db_util::Status status = db_util::QueryInt(db, kIsPackageLayout, is_package_layout);
  if (!status.ok() || is_package_layout == 0) return;
  std::string script = kCacheSize + std::string(kListViews);
  for (const char* table : kTables) {
    script += Text(kCreateList, table);
    script += IsNodes(table) ? Text(kListNodes, table, table) : Text(kListOthers, table, table);
  }
  status = db_util::Execute(db, script);
  if (status.ok()) status = Measure(db);
  if (!status.ok()) *this = ViewRows();
}

db_util::Status ViewRows::Measure(sqlite3* db) {
  sqlite3_int64 pages = 0;
  sqlite3_int64 free_pages = 0;
  sqlite3_int64 page_size = 0;
  db_util::Status status = db_util::QueryInt(db, kPages, pages);
  if (status.ok()) status = db_util::QueryInt(db, kFreePages, free_pages);
  if (status.ok()) status = db_util::QueryInt(db, kPageSize, page_size);
  passes_ = static_cast<int>(1 + (pages - free_pages) * page_size / bytes_of_pass_);
  for (const char* table : kTables) {
    const std::string query = Text("SELECT max(rowid) FROM data_db.%s;", table);
    if (status.ok()) status = db_util::QueryInt(db, query, last_rows_[table]);
  }
  return status;
}

std::string ViewRows::From(const char* table, ViewId view, int pass) const {
  const auto last = last_rows_.find(table);
  if (last == last_rows_.end()) {
    return IsNodes(table) ? Text(kAllNodes, StoredId(view)) : Text(kAllOthers, table, StoredId(view));
  }
  // Numbers below 1 are in the first pass.
  using Limits = std::numeric_limits<sqlite3_int64>;
  const sqlite3_int64 share = std::max<sqlite3_int64>(last->second, 0) / passes_;
  const long long from = pass == 0 ? Limits::min() : share * pass + 1;
  const long long to = pass + 1 == passes_ ? Limits::max() : share * (pass + 1);
  return Text(kListed, table, table, StoredId(view), from, to);
}

}  // namespace updater::server
