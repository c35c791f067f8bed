// The layouts that the databases of each version have: tables, columns, indexes and triggers.
//
// They are written down here and not taken from what the updaters make, so that both can be compared.
#pragma once

#include <map>
#include <set>
#include <string>

#include "ctl/volume_survey.h"
#include "db-util/status.h"

namespace ctl {

struct Layout {
  std::map<std::string, std::map<std::string, std::string>> tables;  // column -> type, as it is declared
  std::map<std::string, std::string> indexes;                        // "table (column, column)"
  std::map<std::string, std::string> triggers;                       // the statement without its blanks
  std::set<std::string> views;                                       // in the sense of SQL
};

db_util::Status ReadLayout(sqlite3* db, Layout& layout);

// The layout of a database of the package at this version: that of the newest version that is not above it.
// Nothing for one that is not there at this version, as views are not below 3400, and below 2577.
[[nodiscard]] const Layout* GoldenLayout(DatabaseSurvey::Kind kind, const std::string& name, int version);

}  // namespace ctl
