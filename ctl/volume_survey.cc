#include "ctl/volume_survey.h"

#include <sys/stat.h>

#include <algorithm>
#include <iomanip>
#include <ostream>

#include "db-util/database.h"
#include "db-util/execute.h"
#include "db-util/query.h"
#include "file-op/file_op.h"

namespace ctl {
namespace {

constexpr std::size_t kViewsShown = 8;
constexpr std::string_view kTableSuffix = "_table";

std::string QueryText(sqlite3* db, const std::string& query) {
  std::string text;
  (void)db_util::ForEachRow(db, query, [&text](sqlite3_stmt* row) {  // without such a table the text is empty
    text = db_util::ColumnText(row, 0);
    return true;
  });
  return text;
}

std::string ReadVersion(sqlite3* db) {
  const std::string number = QueryText(db, "SELECT value FROM config_table WHERE key = 'version';");
  if (number.empty()) return "?";
  return "(" + QueryText(db, "SELECT value FROM config_table WHERE key = 'branch';") + ", " + number + ")";
}

bool CountRows(sqlite3* db, std::vector<DatabaseSurvey::TableRows>& tables) {
  bool readable =
      db_util::ForEachRow(
          db,
          "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%' ORDER BY name;",
          [&tables](sqlite3_stmt* row) {
            tables.push_back({db_util::ColumnText(row, 0), 0});
            return true;
          })
          .ok();
  for (DatabaseSurvey::TableRows& table : tables) {
    std::string query;
    const bool counted = db_util::FormatSql(query, "SELECT count(*) FROM %Q;", table.table) &&
                         db_util::ForEachRow(db, query, [&table](sqlite3_stmt* row) {
                           table.rows = sqlite3_column_int64(row, 0);
                           return false;
                         }).ok();
    readable = readable && counted;
  }
  return readable;
}

void AddDatabase(VolumeSurvey& survey, DatabaseSurvey::Kind kind, std::string name, const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return;
  DatabaseSurvey database = {.kind = kind,
                             .name = std::move(name),
                             .version = "?",
                             .bytes = static_cast<long long>(status.st_size),
                             .readable = false,
                             .tables = {}};
  db_util::Database db;
  if (db_util::OpenQuietly(path, db, db_util::OpenMode::kReadWrite).ok()) {
    database.version = ReadVersion(db.get());
    database.readable = CountRows(db.get(), database.tables);
  }
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

std::string Label(const DatabaseSurvey& database) {
  switch (database.kind) {
    case DatabaseSurvey::Kind::kView:
      return "view " + database.name;
    case DatabaseSurvey::Kind::kFile:
      return "file " + database.name.substr(0, 8);  // the first group of the uuid
    case DatabaseSurvey::Kind::kShared:
      break;
  }
  return database.name;
}

void PrintDatabase(const DatabaseSurvey& database, std::ostream& out) {
  out << "  " << std::left << std::setw(15) << Label(database) << std::setw(16) << database.version
      << std::right << std::setw(9) << (database.bytes + 1023) / 1024 << " KiB  ";
  const char* separator = "";
  for (const DatabaseSurvey::TableRows& table : database.tables) {
    std::string name = table.table;
    if (name.ends_with(kTableSuffix)) name.resize(name.size() - kTableSuffix.size());
    out << separator << name << " " << table.rows;
    separator = ", ";
  }
  out << "\n";
}

}  // namespace

VolumeSurvey SurveyVolume(const package::PackagePaths& paths) {
  using Kind = DatabaseSurvey::Kind;
  VolumeSurvey survey;
  AddDatabase(survey, Kind::kShared, "data", paths.data);
  AddDatabase(survey, Kind::kShared, "log", paths.log);
  AddDatabase(survey, Kind::kShared, "user", paths.user);
  AddDatabase(survey, Kind::kShared, "client", paths.client);
  for (const std::string& name : SortedFolders(paths.view_folder)) {
    AddDatabase(survey, Kind::kView, name, paths.ViewDatabase(name));
  }
  for (const std::string& name : SortedFolders(paths.file_folder)) {
    AddDatabase(survey, Kind::kFile, name, paths.FileDatabase(name));
  }
  db_util::Database db;
  if (db_util::OpenQuietly(paths.user, db, db_util::OpenMode::kReadWrite).ok()) {
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
    if (database.kind != DatabaseSurvey::Kind::kView || ++views <= kViewsShown) PrintDatabase(database, out);
  }
  if (views > kViewsShown) out << "  ... and " << views - kViewsShown << " more view databases\n";
  if (survey.databases.empty()) out << "  no databases\n";
}

}  // namespace ctl
