#include "updater/server/split_preparation.h"

#include "db-util/query.h"
#include "updater/framework/updater_log.h"

namespace updater::server {
namespace {

// A view id that is no whole number is read as one, so nodes that are stored under it would be in no view.
constexpr const char* kLostNodesQuery =
    "SELECT id, name, quote(view_id) FROM user_db.user_table "
    "WHERE typeof(view_id) NOT IN ('integer', 'null') AND view_id IN (SELECT view_id FROM data_db.node_table);";

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

}  // namespace updater::server
