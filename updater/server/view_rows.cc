#include "updater/server/view_rows.h"

#include <algorithm>
#include <array>
#include <limits>

#include "db-util/execute.h"
#include "db-util/query.h"
#include "updater/framework/exec_sql.h"

namespace updater::server {
namespace {

constexpr const char* kNodes = "node_table";
constexpr std::array kTables = {kNodes, "version_table", "tree_table"};

// The index has all that is read of the nodes, which are many times larger.
constexpr const char* kIndexNodes = "CREATE INDEX data_db.split_view_index ON node_table(node_id, view_id);";
constexpr const char* kCreateList =
    "CREATE TABLE data_db.split_%s (of_view, stored_row, PRIMARY KEY (of_view, stored_row)) WITHOUT ROWID;";
constexpr const char* kListNodes =
    "INSERT INTO data_db.split_%s SELECT view_id, rowid FROM data_db.%s INDEXED BY split_view_index "
    "WHERE view_id IS NOT NULL ORDER BY view_id, rowid;";
// Of nodes with the same number in one view the copy tells, too.
constexpr const char* kListOthers =
    "INSERT OR IGNORE INTO data_db.split_%s SELECT nodes.view_id, stored.rowid FROM data_db.%s AS stored "
    "CROSS JOIN data_db.node_table AS nodes INDEXED BY split_view_index ON nodes.node_id = stored.node_id "
    "WHERE nodes.view_id IS NOT NULL ORDER BY nodes.view_id, stored.rowid;";

constexpr const char* kAllNodes = "data_db.node_table WHERE data_db.node_table.view_id = %lld";
constexpr const char* kAllOthers =
    "data_db.%s WHERE node_id IN "
    "(SELECT node_id FROM data_db.node_table WHERE data_db.node_table.view_id = %lld)";
constexpr const char* kListed =
    "data_db.split_%s AS mine CROSS JOIN data_db.%s AS stored ON stored.rowid = mine.stored_row "
    "WHERE mine.of_view = %lld AND mine.stored_row BETWEEN %lld AND %lld";

bool IsNodes(const char* table) { return table == std::string_view(kNodes); }

template <typename... Args>
std::string Text(const logger::SqlFormat<Args...>& format, const Args&... args) {
  std::string text;
  if (!db_util::FormatSql<Args...>(text, format, args...)) text.clear();
  return text;
}

db_util::Status QueryNumber(sqlite3* db, const std::string& query, sqlite3_int64& number) {
  return db_util::ForEachRow(db, query, [&number](sqlite3_stmt* row) {
    number = sqlite3_column_int64(row, 0);
    return false;
  });
}

}  // namespace

bool ViewRows::Sort(sqlite3* db) {
  std::string script = kIndexNodes;
  for (const char* table : kTables) {
    script += Text(kCreateList, table);
    script += IsNodes(table) ? Text(kListNodes, table, table) : Text(kListOthers, table, table);
  }
  const db_util::Status status = db_util::Execute(db, script);
  if (status.code == SQLITE_ERROR) return true;
  return CheckScript(status, script) && Measure(db);
}

bool ViewRows::Measure(sqlite3* db) {
  constexpr const char* kSize =
      "SELECT page_count * page_size FROM pragma_page_count('data_db'), "
      "pragma_page_size('data_db');";
  sqlite3_int64 bytes = 0;
  db_util::Status status = QueryNumber(db, kSize, bytes);
  passes_ = static_cast<int>(1 + bytes / bytes_of_pass_);
  for (const char* table : kTables) {
    const std::string query = Text("SELECT max(rowid) FROM data_db.%s;", table);
    if (status.ok()) status = QueryNumber(db, query, last_rows_[table]);
  }
  return CheckScript(status, kSize);
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
