#include "ctl/volume_survey.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iomanip>
#include <ostream>

#include "ctl/output.h"
#include "ctl/version_graph.h"
#include "db-util/database.h"
#include "db-util/database_files.h"
#include "db-util/execute.h"
#include "db-util/look.h"
#include "db-util/query.h"
#include "file-op/file_op.h"
#include "updater/framework/stored_version.h"

namespace ctl {
namespace {

using Kind = DatabaseSurvey::Kind;

constexpr std::size_t kViewsShown = 8;
constexpr std::string_view kTableSuffix = "_table";

db_util::Status CountRows(sqlite3* db, std::vector<DatabaseSurvey::TableRows>& tables) {
  db_util::Status status = db_util::ForEachRow(
      db, "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%' ORDER BY name;",
      [&tables](sqlite3_stmt* row) {
        tables.push_back({db_util::ColumnText(row, 0), 0});
        return true;
      });
  for (DatabaseSurvey::TableRows& table : tables) {
    std::string query;
    if (!db_util::FormatSql(query, "SELECT count(*) FROM %Q;", table.table)) continue;
    db_util::Status counted = db_util::ForEachRow(db, query, [&table](sqlite3_stmt* row) {
      table.rows = sqlite3_column_int64(row, 0);
      return false;
    });
    if (status.ok()) status = std::move(counted);
  }
  return status;
}

std::optional<updater::Version> ReadVersion(sqlite3* db, std::string& error) {
  updater::Version version;
  error = updater::ReadVersionFrom(db, version);
  return error.empty() ? std::optional(version) : std::nullopt;
}

DatabaseSurvey::Obstacle ObstacleTo(const std::string& path, const db_util::Status& status) {
  using enum DatabaseSurvey::Obstacle;
  if (access(path.c_str(), R_OK) != 0 && errno == EACCES) return kNoAccess;
  return status.IsBusy() ? kLocked : kNone;
}

void LookInto(DatabaseSurvey& database, SurveyDepth depth) {
  db_util::Database db;
  db_util::Status status = db_util::OpenToLook(database.path, db);
  if (status.ok()) {
    database.version = ReadVersion(db.get(), database.error);
    if (!database.version)
      database.obstacle = ObstacleTo(database.path, db_util::StatusOf(sqlite3_errcode(db.get())));
    if (depth == SurveyDepth::kRows) status = CountRows(db.get(), database.tables);
  }
  if (!db) database.obstacle = ObstacleTo(database.path, status);
  if (database.error.empty()) database.error = status.message;
}

void AddDatabase(VolumeSurvey& survey, SurveyDepth depth, DatabaseSurvey::Kind kind, std::string name,
                 const std::string& path) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return;
  DatabaseSurvey database = {.kind = kind, .name = std::move(name), .path = path};
  if (stat(path.c_str(), &status) == 0) database.bytes = status.st_size;
  for (const std::string_view suffix : db_util::kCompanionSuffixes) {
    const std::string companion = path + std::string(suffix);
    if (lstat(companion.c_str(), &status) != 0) continue;
    database.companions.push_back({std::string(suffix), status.st_size});
  }
  database.user = db_util::FindUser(path);
  LookInto(database, depth);
  survey.databases.push_back(std::move(database));
}

// The sub-folders in the order of their numbers, where they are numbers.
std::vector<std::string> SortedFolders(const std::string& folder) {
  std::vector<std::string> names;
  if (file_op::ListFolders(folder, names) < 0) names.clear();
  std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  });
  return names;
}

void PrintRowCounts(const DatabaseSurvey& database, std::ostream& out) {
  constexpr std::size_t kFirstColumn = 45;  // of the rows
  out << "  " << std::left << std::setw(15) << Printable(Label(database)) << std::setw(16)
      << VersionText(database) << std::right << std::setw(10) << Bytes(database.bytes) << "  ";
  std::size_t column = kFirstColumn;
  for (const DatabaseSurvey::TableRows& table : database.tables) {
    std::string name = table.table;
    if (name.ends_with(kTableSuffix)) name.resize(name.size() - kTableSuffix.size());
    const bool is_last = &table == &database.tables.back();
    const std::string entry = Printable(name) + " " + std::to_string(table.rows) + (is_last ? "" : ",");
    const bool is_first = column == kFirstColumn;
    if (!is_first && column + 1 + entry.size() > kLineWidth) {
      out << "\n" << std::string(kFirstColumn, ' ');
      column = kFirstColumn;
    } else if (!is_first) {
      out << " ";
      ++column;
    }
    out << entry;
    column += entry.size();
  }
  out << "\n";
}

}  // namespace

std::string Label(const DatabaseSurvey& database) {
  switch (database.kind) {
    case Kind::kView:
      return "view " + database.name;
    case Kind::kFile:
      return "file " + database.name.substr(0, 8);  // the first group of the uuid
    case Kind::kShared:
      break;
  }
  return database.name;
}

std::string VersionText(const DatabaseSurvey& database) { return TextOf(database.version); }

const DatabaseSurvey* FindShared(const VolumeSurvey& survey, const std::string& name) {
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.kind == Kind::kShared && database.name == name) return &database;
  }
  return nullptr;
}

std::string NoAccessTo(const VolumeSurvey& survey) {
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.obstacle == DatabaseSurvey::Obstacle::kNoAccess)
      return "cannot read " + database.path + ": Permission denied";
  }
  return {};
}

std::optional<updater::Version> ReadVersionOf(const std::string& path, std::string& error) {
  db_util::Database db;
  const db_util::Status status = db_util::OpenToLook(path, db);
  error = status.message;
  return status.ok() ? ReadVersion(db.get(), error) : std::nullopt;
}

VolumeSurvey SurveyVolume(const package::PackagePaths& paths, SurveyDepth depth) {
  VolumeSurvey survey;
  AddDatabase(survey, depth, Kind::kShared, "data", paths.data);
  AddDatabase(survey, depth, Kind::kShared, "log", paths.log);
  AddDatabase(survey, depth, Kind::kShared, "user", paths.user);
  AddDatabase(survey, depth, Kind::kShared, "client", paths.client);
  for (const std::string& name : SortedFolders(paths.view_folder)) {
    AddDatabase(survey, depth, Kind::kView, name, paths.ViewDatabase(name));
  }
  for (const std::string& name : SortedFolders(paths.file_folder)) {
    AddDatabase(survey, depth, Kind::kFile, name, paths.FileDatabase(name));
  }
  db_util::Database db;
  if (depth == SurveyDepth::kRows && db_util::OpenToLook(paths.user, db).ok()) {
    (void)db_util::ForEachRow(db.get(), "SELECT name FROM user_table ORDER BY view_id;",
                              [&survey](sqlite3_stmt* row) {
                                survey.users.push_back(db_util::ColumnText(row, 0));
                                return true;
                              });
  }
  return survey;
}

void PrintSurvey(const VolumeSurvey& survey, std::ostream& out) {
  std::size_t views = 0;
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.kind != Kind::kView || ++views <= kViewsShown) PrintRowCounts(database, out);
  }
  if (views > kViewsShown) out << "  ... and " << views - kViewsShown << " more view databases\n";
  if (survey.databases.empty()) out << "  no databases\n";
}

}  // namespace ctl
