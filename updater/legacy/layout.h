// The databases at version 2577, and which step of the legacy chain answers for which part of them.
//
// What they looked like before is not known to anybody here. So the rows tell where the steps end: a step
// adds those of its own parts that a database has not got.
#pragma once

#include <array>
#include <string>

namespace updater::legacy {

inline constexpr int kLayoutVersion = 2577;

enum class Database { kData, kUser, kClient };
inline constexpr std::array kDatabases = {Database::kData, Database::kUser, Database::kClient};

// The name under which the updaters attach it.
[[nodiscard]] constexpr const char* SchemaOf(Database database) {
  constexpr std::array kSchemas = {"data_db", "user_db", "client_db"};
  return kSchemas.at(static_cast<std::size_t>(database));
}

struct Table {
  int step;
  Database database;
  const char* name;
  const char* columns;
};

// "DATATIME" is how every installed schema spells it. The order counts: later updaters move rows of some of
// these tables by position.
inline constexpr std::array kTables = {
    Table{1, Database::kData, "config_table",
          "key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT ''"},
    Table{1, Database::kUser, "config_table", "key VARCHAR UNIQUE ON CONFLICT ABORT, value VARCHAR"},
    Table{3, Database::kData, "node_table",
          "node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, view_id INTEGER, attribute INTEGER,"
          " max_id INTEGER, sync_id INTEGER, ver_cnt INTEGER, ctime DATETIME DEFAULT (strftime('%s','now')),"
          " mtime DATETIME DEFAULT (strftime('%s','now')), name VARCHAR NOT NULL COLLATE NOCASE,"
          " path VARCHAR NOT NULL COLLATE NOCASE, data VARCHAR DEFAULT NULL"},
    Table{3, Database::kData, "tree_table",
          "node_id INTEGER NOT NULL, parent_id INTEGER NOT NULL, distance INTEGER NOT NULL"},
    Table{4, Database::kUser, "user_table",
          "id INTEGER PRIMARY KEY AUTOINCREMENT, attribute INTEGER, view_id INTEGER,"
          " name VARCHAR COLLATE NOCASE UNIQUE, uid INTEGER, gid INTEGER, user_type INTEGER NOT NULL,"
          " watch_path VARCHAR NOT NULL"},
    Table{4, Database::kUser, "session_table",
          "uid INTEGER REFERENCES user_table (id), attribute INTEGER DEFAULT 0, group_id INTEGER,"
          " client VARCHAR, ip VARCHAR, ctime DATETIME DEFAULT (strftime('%s','now')),"
          " sess_id VARCHAR UNIQUE ON CONFLICT ABORT"},
    Table{5, Database::kData, "version_table",
          "ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, attribute INTEGER, sync_id INTEGER,"
          " base_id INTEGER, ctime DATATIME DEFAULT (strftime('%s','now')), file_id INTEGER,"
          " file_size INTEGER, file_hash VARCHAR(40), mtime DATETIME, exec_bit INTEGER, uid INTEGER,"
          " gid INTEGER, sess_id INTEGER, client_id VARCHAR, win_attr BLOB DEFAULT NULL,"
          " linux_attr BLOB DEFAULT NULL, mac_attr BLOB DEFAULT NULL, plat_attr BLOB DEFAULT NULL"},
    Table{6, Database::kData, "file_table",
          "file_id INTEGER PRIMARY KEY, attribute INTEGER DEFAULT 0, ref_cnt INTEGER DEFAULT 0,"
          " size INTEGER DEFAULT 0, hash VARCHAR(40) DEFAULT ''"},
    Table{6, Database::kData, "delta_table",
          "node_id INTEGER, from_id INTEGER, to_id INTEGER, attribute INTEGER, delta_file_id INTEGER"},
    Table{7, Database::kClient, "config_table",
          "key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT ''"},
    Table{8, Database::kClient, "node_table",
          "node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id INTEGER, view_id INTEGER, sync_id INTEGER,"
          " mtime DATETIME, file_hash VARCHAR(40), name VARCHAR NOT NULL COLLATE NOCASE,"
          " path VARCHAR NOT NULL COLLATE NOCASE"},
    Table{9, Database::kClient, "progress_table", "view_id INTEGER, sync_id INTEGER"},
};

struct Index {
  int step;
  Database database;
  const char* name;
  const char* table;
  const char* column;
};

inline constexpr std::array kIndexes = {
    Index{3, Database::kData, "node_table_parent_id_index", "node_table", "parent_id"},
    Index{3, Database::kData, "node_table_view_id_index", "node_table", "view_id"},
    Index{3, Database::kData, "node_table_path_index", "node_table", "path"},
    Index{5, Database::kData, "version_table_sync_id_index", "version_table", "sync_id"},
    Index{8, Database::kClient, "node_table_path_index", "node_table", "path"},
};

struct ConfigRow {
  int step;
  Database database;
  const char* key;
  const char* value;  // of a missing row, in SQL
};

inline constexpr const char* kVersionKey = "version";
inline constexpr const char* kVersionValue = "'2577'";

// A counter may hold the last number that was given away or the next one: one above the largest in use is
// right for both; what has reached the largest number of all stays there. A missing serial stays unknown,
// which is what the default of the column says.
inline constexpr std::array kConfigRows = {
    ConfigRow{
        4, Database::kUser, "view_id",
        "coalesce((SELECT CAST(max(CAST(view_id AS INTEGER)) + 1 AS INTEGER) FROM user_db.user_table), 1)"},
    ConfigRow{
        5, Database::kData, "sync_id",
        "coalesce((SELECT CAST(max(id) + 1 AS INTEGER) FROM (SELECT max(CAST(sync_id AS INTEGER)) AS id FROM "
        "data_db.version_table UNION ALL SELECT max(CAST(sync_id AS INTEGER)) FROM data_db.node_table "
        "UNION ALL SELECT max(CAST(max_id AS INTEGER)) FROM data_db.node_table)), 0)"},
    ConfigRow{
        6, Database::kData, "file_id",
        "coalesce((SELECT CAST(max(id) + 1 AS INTEGER) FROM (SELECT max(CAST(file_id AS INTEGER)) AS id FROM "
        "data_db.file_table UNION ALL SELECT max(CAST(file_id AS INTEGER)) FROM "
        "data_db.version_table)), 0)"},
    ConfigRow{
        6, Database::kData, "delta_file_id",
        "coalesce((SELECT CAST(max(CAST(delta_file_id AS INTEGER)) + 1 AS INTEGER) FROM data_db.delta_table), 0)"},
    ConfigRow{6, Database::kData, "rotate_cnt", "'32'"},
    ConfigRow{6, Database::kData, "rotate_span", "'15552000'"},
    ConfigRow{10, Database::kData, "row1", "'1'"},
    ConfigRow{10, Database::kData, "serial", "''"},
    ConfigRow{10, Database::kClient, "sync_id", "'0'"},
    ConfigRow{11, Database::kData, kVersionKey, kVersionValue},
    ConfigRow{11, Database::kUser, kVersionKey, kVersionValue},
    ConfigRow{11, Database::kClient, kVersionKey, kVersionValue},
};

// One step: its number, and which databases it gets. There is no second one.
struct StepRow {
  int number;
  bool has_data;
  bool has_user;
  bool has_client;

  [[nodiscard]] constexpr bool Gets(Database database) const {
    return std::array{has_data, has_user, has_client}.at(static_cast<std::size_t>(database));
  }
};

inline constexpr std::array kSteps = {
    StepRow{1, true, true, false}, StepRow{3, true, false, false}, StepRow{4, false, true, false},
    StepRow{5, true, true, false}, StepRow{6, true, true, false},  StepRow{7, true, true, true},
    StepRow{8, true, true, true},  StepRow{9, true, true, true},   StepRow{10, true, true, true},
    StepRow{11, true, true, true},
};
// It stamps what the others have brought to the layout, and makes nothing else.
inline constexpr int kLastStep = kSteps.back().number;

// The statements without a schema name: "CREATE TABLE <name> (<columns>);" for every table, in their order,
// and the same for the indexes.
[[nodiscard]] std::string CreateTables(Database database);
[[nodiscard]] std::string CreateIndexes(Database database);

[[nodiscard]] std::string CreateTable(const std::string& name, const Table& like);
[[nodiscard]] std::string CreateIndex(const std::string& name, const Index& like);

}  // namespace updater::legacy
