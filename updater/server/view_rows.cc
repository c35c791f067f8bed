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

// Whether numbers are compared as numbers, the number of a node is that of its row (a primary key of any
// other kind has an index), and every row is known by its number. There are five such columns in the
// package's tables; one with a name of the row's number would be read in its place.
constexpr const char* kIsPackageLayout =
    "SELECT sum(type LIKE '%int%' AND name IN ('node_id', 'view_id', 'ver_id')) = 5 AND "
    "sum(is_node AND name = 'node_id' AND type = 'INTEGER' AND pk) = 1 AND sum(is_node AND pk) = 1 AND "
    "NOT EXISTS (SELECT 1 FROM pragma_index_list('node_table', 'data_db') WHERE origin = 'pk') AND "
    "NOT sum(lower(name) IN ('rowid', 'oid', '_rowid_')) FROM "
    "(SELECT name, type, pk, 1 AS is_node FROM pragma_table_xinfo('node_table', 'data_db') UNION ALL "
    "SELECT name, type, pk, 0 FROM pragma_table_xinfo('version_table', 'data_db') UNION ALL "
    "SELECT name, type, pk, 0 FROM pragma_table_xinfo('tree_table', 'data_db'));";

// What is read of the nodes, which are many times larger.
constexpr const char* kListViews =
    "CREATE TEMP TABLE split_views (node_id INTEGER PRIMARY KEY, view_id INTEGER);"
    "INSERT INTO temp.split_views SELECT node_id, view_id FROM data_db.node_table "
    "WHERE view_id IN (SELECT view_id FROM temp.split_wanted);";
constexpr const char* kCreateWanted =
    "CREATE TEMP TABLE split_wanted (view_id INTEGER PRIMARY KEY ON CONFLICT IGNORE);";
constexpr const char* kWant = "INSERT INTO temp.split_wanted VALUES (%lld);";
constexpr const char* kCreateList =
    "CREATE TEMP TABLE split_%s (of_view INTEGER, stored_row INTEGER, PRIMARY KEY (of_view, stored_row)) "
    "WITHOUT ROWID;";
// The table three times, and the rows of the pass.
constexpr const char* kListRows =
    "DELETE FROM temp.split_%s; INSERT INTO temp.split_%s SELECT nodes.view_id, stored.rowid "
    "FROM data_db.%s AS stored CROSS JOIN temp.split_views AS nodes ON nodes.node_id = stored.node_id "
    "WHERE stored.rowid BETWEEN %lld AND %lld ORDER BY nodes.view_id, stored.rowid;";

constexpr const char* kAllNodes = "data_db.node_table WHERE data_db.node_table.view_id = %lld";
constexpr const char* kAllOthers =
    "data_db.%s WHERE node_id IN "
    "(SELECT node_id FROM data_db.node_table WHERE data_db.node_table.view_id = %lld)";
constexpr const char* kListed =
    "temp.split_%s AS mine CROSS JOIN data_db.%s AS stored ON stored.rowid = mine.stored_row "
    "WHERE mine.of_view = %lld";

constexpr const char* kPages = "PRAGMA data_db.page_count;";
constexpr const char* kFreePages = "PRAGMA data_db.freelist_count;";
constexpr const char* kPageSize = "PRAGMA data_db.page_size;";

bool IsNodes(const char* table) { return table == std::string_view(kNodes); }

template <typename... Args>
std::string Text(const logger::SqlFormat<Args...>& format, const Args&... args) {
  std::string text;
  if (!db_util::FormatSql<Args...>(text, format, args...)) text.clear();
  return text;
}

}  // namespace

void ViewRows::Begin(sqlite3* db, const std::vector<ViewId>& views) {
  int is_package_layout = 0;
  db_util::Status status = db_util::QueryInt(db, kIsPackageLayout, is_package_layout);
  if (!status.ok() || is_package_layout == 0) return;
  std::string script = "PRAGMA temp.cache_size = -" + std::to_string(cache_kib_ / 6) + ";" + kCreateWanted;
  for (const ViewId view : views) script += Text(kWant, StoredId(view));
  script += kListViews;
  for (const char* table : kTables) script += Text(kCreateList, table);
  status = db_util::Execute(db, script);
  if (status.ok()) status = Measure(db);
  if (status.ok()) status = ListRows(db);
  if (!status.ok()) *this = ViewRows();
}

db_util::Status ViewRows::BeginPass(sqlite3* db, int pass) {
  if (pass == pass_) return {};
  pass_ = pass;
  return ListRows(db);
}

db_util::Status ViewRows::ListRows(sqlite3* db) const {
  std::string script;
  for (const char* table : kTables) {
    // Numbers below 1 are in the first pass.
    using Limits = std::numeric_limits<sqlite3_int64>;
    const sqlite3_int64 share = std::max<sqlite3_int64>(last_rows_.at(table), 0) / passes_;
    const long long from = pass_ == 0 ? Limits::min() : share * pass_ + 1;
    const long long to = pass_ + 1 == passes_ ? Limits::max() : share * (pass_ + 1);
    script += Text(kListRows, table, table, table, from, to);
  }
  return db_util::Execute(db, script);
}

db_util::Status ViewRows::Measure(sqlite3* db) {
  sqlite3_int64 pages = 0;
  sqlite3_int64 free_pages = 0;
  sqlite3_int64 page_size = 0;
  db_util::Status status = db_util::QueryInt(db, kPages, pages);
  if (status.ok()) status = db_util::QueryInt(db, kFreePages, free_pages);
  if (status.ok()) status = db_util::QueryInt(db, kPageSize, page_size);
  // The cache has room for the lists and for what is written, too.
  const sqlite3_int64 bytes_of_pass = sqlite3_int64{cache_kib_} * 1024 * 2 / 3;
  const sqlite3_int64 bytes = std::max<sqlite3_int64>(pages - free_pages, 0) * page_size;
  passes_ = static_cast<int>(1 + bytes / std::max<sqlite3_int64>(bytes_of_pass, 1));
  for (const char* table : kTables) {
    const std::string query = Text("SELECT max(rowid) FROM data_db.%s;", table);
    if (status.ok()) status = db_util::QueryInt(db, query, last_rows_[table]);
  }
  return status;
}

std::string ViewRows::From(const char* table, ViewId view) const {
  if (!last_rows_.empty()) return Text(kListed, table, table, StoredId(view));
  return IsNodes(table) ? Text(kAllNodes, StoredId(view)) : Text(kAllOthers, table, StoredId(view));
}

}  // namespace updater::server
