// What the package's databases on a volume hold at one moment: versions, sizes and row counts.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "package/layout.h"

namespace ctl {

struct DatabaseSurvey {
  enum class Kind { kShared, kView, kFile };

  struct TableRows {
    std::string table;
    long long rows;
  };

  Kind kind;
  std::string name;     // "data"; of a view its id, of a file database the uuid of its volume
  std::string version;  // "(master, 4100)"; "?" when it cannot be read
  long long bytes = 0;
  bool readable = false;          // false: not all tables and rows could be counted
  std::vector<TableRows> tables;  // by name
};

struct VolumeSurvey {
  std::vector<DatabaseSurvey> databases;  // data, log, user, client, then views and files; existing ones only
  std::vector<std::string> users;         // names, by view id
};

// Looks at the live databases. Opening one may checkpoint its write-ahead log; nothing else is changed.
[[nodiscard]] VolumeSurvey SurveyVolume(const package::PackagePaths& paths);

// One line a database; of many view databases only the first few, and how many more there are.
void PrintSurvey(const VolumeSurvey& survey, std::ostream& out);

}  // namespace ctl
