#include "updater/server/sql/log_table.h"

#include "updater/server/sql/indexes.h"

namespace updater::server::sql {
namespace {

constexpr const char* kColumns =
    "type INTEGER NOT NULL, uid INTEGER, username VARCHAR, view_id INTEGER, share_name VARCHAR, "
    "share_type INTEGER, time INTEGER NOT NULL, "
    "s1 VARCHAR COLLATE NOCASE, s2 VARCHAR COLLATE NOCASE, s3 VARCHAR COLLATE NOCASE, "
    "s4 VARCHAR COLLATE NOCASE, s5 VARCHAR COLLATE NOCASE, "
    "p1 VARCHAR COLLATE NOCASE, p2 VARCHAR COLLATE NOCASE, p3 VARCHAR COLLATE NOCASE, "
    "p4 VARCHAR COLLATE NOCASE, p5 VARCHAR COLLATE NOCASE";

constexpr Index kIndexes[] = {
    {"log_table", "type"},       {"log_table", "uid"},  {"log_table", "username"}, {"log_table", "view_id"},
    {"log_table", "share_name"}, {"log_table", "time"}, {"log_table", "s1"},       {"log_table", "s2"},
    {"log_table", "s3"},         {"log_table", "s4"},   {"log_table", "s5"},
};

}  // namespace

std::string CreateLogTable(const char* schema) {
  return std::string("CREATE TABLE IF NOT EXISTS ") + schema + ".log_table (" + kColumns + ");";
}

std::string CreateLogIndexes(const char* schema) { return CreateIndexes(schema, kIndexes); }

}  // namespace updater::server::sql
