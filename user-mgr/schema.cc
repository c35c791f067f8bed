#include "user-mgr/schema.h"

#include <string>

#include "db-util/query.h"
#include "package/layout.h"
#include "user-mgr/records.h"
#include "user-mgr/statement.h"

namespace user_mgr {
namespace {

// "INTEGAR" is spelt so in every user database; SQLite reads it as an integer type all the same.
constexpr logger::SqlFormat<int, const char*> kSchema =
    "BEGIN IMMEDIATE TRANSACTION;"
    "CREATE TABLE IF NOT EXISTS user_table ("
    "id INTEGER PRIMARY KEY AUTOINCREMENT, "
    "attribute INTEGER, "
    "view_id INTEGER, "
    "name VARCHAR COLLATE NOCASE UNIQUE, "
    "uid INTEGER, "
    "gid INTEGER, "
    "user_type INTEGER NOT NULL, "
    "watch_path VARCHAR NOT NULL);"
    "CREATE TABLE IF NOT EXISTS session_table ("
    "uid INTEGER REFERENCES user_table (id), "
    "attribute INTEGER DEFAULT 0, "
    "group_id INTEGER, "
    "client VARCHAR, "
    "ip VARCHAR, "
    "ctime DATETIME DEFAULT (strftime('%%s','now')), "
    "sess_id VARCHAR UNIQUE ON CONFLICT ABORT, "
    "client_type INTEGER DEFAULT 0, "
    "client_platform VARCHAR DEFAULT 'Unknown');"
    "CREATE TABLE IF NOT EXISTS backup_task_table ("
    "session VARCHAR, "
    "view_id INTEGER, "
    "relative_path VARCHAR, "
    "is_readonly INTEGER);"
    "CREATE TABLE IF NOT EXISTS config_table ("
    "key VARCHAR UNIQUE ON CONFLICT ABORT, "
    "value VARCHAR);"
    "CREATE TABLE IF NOT EXISTS profile_table ("
    "id INTEGER PRIMARY KEY AUTOINCREMENT, "
    "name VARCHAR NOT NULL, "
    "context VARCHAR NOT NULL DEFAULT '{}', "
    "attribute INTEGER DEFAULT 0);"
    "CREATE TABLE IF NOT EXISTS profile_apply_table ("
    "profile_id INTEGER, "
    "user_id INTEGAR, "
    "PRIMARY KEY (profile_id, user_id) ON CONFLICT IGNORE);"
    "CREATE TABLE IF NOT EXISTS profile_apply_view_table ("
    "profile_id INTEGER, "
    "view_id INTEGER, "
    "PRIMARY KEY (profile_id, view_id) ON CONFLICT IGNORE);"
    "CREATE TABLE IF NOT EXISTS rotate_setting_table ("
    "view_id INTEGER PRIMARY KEY ON CONFLICT REPLACE, "
    "rotate_cnt INTEGER, "
    "rotate_policy VARCHAR);"
    "CREATE INDEX IF NOT EXISTS profile_id_idx ON profile_table(id);"
    "CREATE INDEX IF NOT EXISTS profile_apply_id_idx ON profile_apply_table(profile_id);"
    "CREATE INDEX IF NOT EXISTS profile_apply_uid_idx ON profile_apply_table(user_id);"
    "CREATE INDEX IF NOT EXISTS profile_apply_view_id_idx ON profile_apply_view_table(profile_id);"
    "CREATE INDEX IF NOT EXISTS profile_apply_view_vid_idx ON profile_apply_view_table(view_id);"
    "INSERT OR IGNORE INTO config_table VALUES ('version', %d);"
    "INSERT OR IGNORE INTO config_table VALUES ('branch', %Q);"
    "INSERT OR IGNORE INTO config_table VALUES ('view_id', '1');"
    "CREATE INDEX IF NOT EXISTS session_task_index ON backup_task_table(session);"
    "INSERT OR IGNORE INTO rotate_setting_table (view_id, rotate_cnt, rotate_policy) VALUES (0, 32, 'fifo');"
    "END TRANSACTION;";

constexpr char kInsertDefaultProfile[] =
    "INSERT OR IGNORE INTO profile_table (name, context, attribute) VALUES ("
    "'internal for enc share', \t\t\t'{\"filtered_max_name_length\":143}', 7);";

bool InsertDefaultProfile(sqlite3* db) {
  const db_util::Status status = db_util::Execute(db, kInsertDefaultProfile);
  return Check(status, "Fail to insert default server profile: %s (%d)\n", status.message, status.code);
}

bool LookForDefaultProfile(sqlite3* db, bool& exists) {
  std::string query;
  if (!FormatStatement(query, "", "SELECT * FROM profile_table WHERE attribute & %d", kDefaultProfile)) {
    return false;
  }
  exists = false;
  const db_util::Status status = db_util::ForEachRow(db, query, [&exists](sqlite3_stmt* /*row*/) {
    exists = true;
    return false;
  });
  return status.call == db_util::Status::Call::kPrepare
             ? Check(status, "sqlite3_prepare_v2(%d): %s\n", status.code, status.message)
             : Check(status, "Fail to get profile info(%d): %s\n", status.code, status.message);
}

}  // namespace

bool CreateSchema(sqlite3* db) {
  std::string script;
  return db_util::FormatSql(script, kSchema, package::kCurrentVersion, package::kCurrentBranch) &&
         ExecuteOn(db, script);
}

bool EnsureDefaultProfile(sqlite3* db) {
  bool exists = false;
  return LookForDefaultProfile(db, exists) && (exists || InsertDefaultProfile(db));
}

}  // namespace user_mgr
