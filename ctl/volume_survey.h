// What the package's databases on a volume hold at one moment: versions, sizes and row counts.
#pragma once

#include <sys/types.h>

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "package/layout.h"
#include "updater/framework/version.h"

namespace ctl {

struct DatabaseSurvey {
  enum class Kind { kShared, kView, kFile };

  struct TableRows {
    std::string table;
    long long rows;
  };

  // What keeps this process from reading it, and tells nothing of its content.
  enum class Obstacle { kNone, kLocked, kNoAccess };

  struct Companion {
    std::string suffix;  // "-wal"
    long long bytes;
  };

  Kind kind;
  std::string name;  // "data"; of a view its id, of a file database the uuid of its volume
  std::string path;
  std::optional<updater::Version> version = {};
  std::string error = {};  // why it has no version, or not all rows could be counted
  Obstacle obstacle = Obstacle::kNone;
  long long bytes = 0;
  std::vector<Companion> companions = {};
  std::optional<pid_t> user = {};      // who has it locked or its log open; 0 where nobody knows the number
  std::vector<TableRows> tables = {};  // by name
};

// "(master, 4100)"; "?" when it cannot be read.
[[nodiscard]] std::string VersionText(const DatabaseSurvey& database);
// "data", "view 17", and of a file database the first group of its uuid.
[[nodiscard]] std::string Label(const DatabaseSurvey& database);

struct VolumeSurvey {
  std::vector<DatabaseSurvey> databases;  // data, log, user, client, then views and files; existing ones only
  std::vector<std::string> users;         // names, by view id; with the rows only
};

// The "data", "log", "user" or "client" database; null where there is none.
[[nodiscard]] const DatabaseSurvey* FindShared(const VolumeSurvey& survey, const std::string& name);

// "cannot read PATH: Permission denied" for the first database that this process may not read; empty without
// one.
[[nodiscard]] std::string NoAccessTo(const VolumeSurvey& survey);

enum class SurveyDepth { kVersions, kRows };

// The version of one database; nothing, with the reason in `error`, where it has none.
[[nodiscard]] std::optional<updater::Version> ReadVersionOf(const std::string& path, std::string& error);

// Looks at the live databases, and changes nothing.
[[nodiscard]] VolumeSurvey SurveyVolume(const package::PackagePaths& paths, SurveyDepth depth);

// Versions, sizes and rows; of many view databases only the first few, and how many more there are.
void PrintSurvey(const VolumeSurvey& survey, std::ostream& out);

}  // namespace ctl
