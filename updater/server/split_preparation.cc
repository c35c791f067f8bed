#include "updater/server/split_preparation.h"

#include "db-util/execute.h"
#include "db-util/query.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"

namespace updater::server {
namespace {

// The column by which every view picks its rows from a table of the data database.
struct Lookup {
  const char* table;
  const char* column;
};
constexpr Lookup kViewLookups[] = {
    {"node_table", "view_id"}, {"version_table", "node_id"}, {"tree_table", "node_id"}};

// A view id that is no whole number is read as one, so nodes that are stored under it would be in no view.
constexpr const char* kLostNodesQuery =
    "SELECT id, name, quote(view_id) FROM user_db.user_table "
    "WHERE typeof(view_id) NOT IN ('integer', 'null') AND EXISTS "
    "(SELECT 1 FROM data_db.node_table WHERE data_db.node_table.view_id = user_table.view_id);";

bool HasLeadingIndex(sqlite3* db, const Lookup& lookup) {
  std::string query;
  int count = 0;
  return db_util::FormatSql(query,
                            "SELECT count(*) FROM pragma_index_list(%Q, 'data_db') AS list "
                            "JOIN pragma_index_info(list.name, 'data_db') AS info "
                            "WHERE NOT list.partial AND info.seqno = 0 AND info.name = %Q;",
                            lookup.table, lookup.column) &&
         db_util::QueryInt(db, query, count).ok() && count > 0;
}

}  // namespace

bool RefuseLostNodes(sqlite3* db) {
  bool none_lost = true;
  // A query that fails is no reason to refuse: the split says what is wrong with the tables.
  (void)db_util::ForEachRow(db, kLostNodesQuery, [&none_lost](sqlite3_stmt* row) {
    UpdaterLog("user_table row %lld ('%s') has nodes under view_id %s, which is no view id\n",
               static_cast<long long>(sqlite3_column_int64(row, 0)),
               logger::CutInTheMiddle(db_util::ColumnText(row, 1), logger::kLongestShownValue),
               logger::CutInTheMiddle(db_util::ColumnText(row, 2), logger::kLongestShownValue));
    none_lost = false;
    return true;
  });
  return none_lost;
}

bool IndexViewLookups(sqlite3* db) {
  for (const Lookup& lookup : kViewLookups) {
    if (HasLeadingIndex(db, lookup)) continue;
    std::string statement;
    if (db_util::FormatSql(statement, "CREATE INDEX IF NOT EXISTS data_db.split_%s_index ON %s(%s);",
                           lookup.table, lookup.table, lookup.column)) {
      if (ExecForSpeed(db, statement) < 0) return false;
    }
  }
  return true;
}

}  // namespace updater::server
