#include "tests/support/fixtures.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "db-util/execute.h"
#include "db-util/query.h"
#include "tests/support/temporary_folder.h"
#include "updater/framework/suspended_logs.h"

namespace tests {
namespace {

namespace fs = std::filesystem;

const fs::path kData = UPDATER_TEST_DATA;

// Read-write: a read-only connection to a database with a write-ahead log would leave the log behind.
db_util::Database Open(const std::string& path, db_util::OpenMode mode = db_util::OpenMode::kReadWrite) {
  db_util::Database db;
  if (!db_util::OpenQuietly(path, db, mode).ok()) throw std::runtime_error("cannot open " + path);
  (void)sqlite3_db_config(db.get(), SQLITE_DBCONFIG_DEFENSIVE, 0, nullptr);  // a test may do what it likes
  (void)sqlite3_db_config(db.get(), SQLITE_DBCONFIG_ENABLE_VIEW, 1, nullptr);
  return db;
}

void Execute(const db_util::Database& db, const std::string& path, const std::string& sql) {
  const db_util::Status status = db_util::Execute(db.get(), sql);
  if (!status.ok()) throw std::runtime_error(path + ": " + status.message);
}

std::vector<std::string> Rows(const db_util::Database& db, const std::string& sql,
                              std::string (*text_of)(sqlite3_stmt*, int)) {
  std::vector<std::string> rows;
  const auto add = [&](sqlite3_stmt* row) {
    std::string text = text_of(row, 0);
    for (int i = 1; i < sqlite3_column_count(row); ++i) text += '|' + text_of(row, i);
    rows.push_back(std::move(text));
    return true;
  };
  const db_util::Status result = db_util::ForEachRow(db.get(), sql, add);
  if (!result.ok()) throw std::runtime_error(sql + ": " + result.message);
  return rows;
}

// Name, type and every byte: 1, '1', 1.0 and X'31' are four different values.
std::string ExactText(sqlite3_stmt* row, int column) {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(row, column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, column));
  return std::string(sqlite3_column_name(row, column)) + " " + "?ifTBn"[sqlite3_column_type(row, column)] +
         (size == 0 ? std::string() : std::string(bytes, size));
}

std::string Sorted(const std::string& head, std::vector<std::string> rows) {
  std::sort(rows.begin(), rows.end());
  std::string text;
  for (const std::string& row : rows) text.append(head).append(row).append("\n");
  return text;
}

// The script of that name as of the version: the last whole one with the deltas that follow it; empty when
// there is none.
std::string FindScript(int version, const std::string& name) {
  std::string text;
  for (const int folder : kVersions) {
    if (folder > version) break;
    const std::string script = kData / std::to_string(folder) / name;
    if (fs::exists(script + ".sql")) text = ReadFile(script + ".sql");
    text += ReadFile(script + ".delta.sql");  // most versions have none
  }
  return text;
}

}  // namespace

updater::Version VersionOf(int number) {
  if (number == 2577) return {"", number};
  return {number == 2603 ? "hos-4.3" : package::kMasterBranch, number};
}

package::PackagePaths PackageIn(const std::string& folder) {
  package::PackagePaths paths = package::PathsInSyncFolder(folder + "/@sync");
  paths.client = folder + "/@clientd/db.sqlite";
  return paths;
}

std::map<std::string, std::string> DatabasesOf(const package::PackagePaths& where) {
  std::map<std::string, std::string> paths = {
      {"data", where.data}, {"log", where.log}, {"user", where.user}, {"client", where.client}};
  std::error_code ignored;  // a folder that is not there holds nothing
  for (const auto& view : fs::directory_iterator(where.view_folder, ignored)) {
    paths["view/" + view.path().filename().string()] = view.path() / package::kViewDatabase;
  }
  for (const auto& volume : fs::directory_iterator(where.file_folder, ignored)) {
    paths["file/" + volume.path().filename().string()] = volume.path() / package::kFileDatabase;
  }
  std::erase_if(paths, [](const auto& path) { return !fs::exists(path.second); });
  return paths;
}

void WriteFixture(int version, const std::string& uuid, const std::string& extras,
                  const package::PackagePaths& where) {
  const auto write = [&](const std::string& path, const std::vector<std::string>& scripts, int stored) {
    std::string text;
    for (const std::string& script : scripts) text += FindScript(version, script);
    if (text.empty()) return;  // there is no such database yet
    std::istringstream names(extras);
    for (std::string extra; names >> extra;) {
      for (const std::string& script : scripts) text += FindScript(version, "extra-" + extra + "-" + script);
    }
    for (const auto& [name, value] : {std::pair("@UUID@", uuid), {"@SYNC@", where.sync_folder}}) {
      const std::string quoted = "'" + std::regex_replace(value, std::regex("'"), "''") + "'";
      text = std::regex_replace(text, std::regex(name), quoted);
    }
    const std::string insert = "INSERT OR REPLACE INTO config_table (key, value) VALUES ";
    text += insert + "('version', '" + std::to_string(stored) + "');";
    const std::string branch = VersionOf(version).branch;
    if (!branch.empty()) text += insert + "('branch', '" + branch + "');";
    fs::create_directories(fs::path(path).parent_path());
    RunSql(path, "PRAGMA synchronous = OFF;" + text, db_util::OpenMode::kCreate);
  };
  for (const char* folder : {"/repo", "/delta", "/rm"}) fs::create_directories(where.sync_folder + folder);
  write(where.data, {"data"}, version);
  write(where.user, {"user"}, version);
  write(where.client, {"client"}, version);
  write(where.log, {"log"}, version);
  // The step that splits the data database makes these as of a later version; the next one puts that right.
  const int stored = version == 3400 ? 4150 : version;
  write(where.FileDatabase(uuid), {"file"}, stored);
  for (const std::string view : {"1", "5", "17", "4294967297"}) {
    write(where.ViewDatabase(view), {"view", "view-config", "view-" + view}, stored);
  }
}

void RunSql(const std::string& path, const std::string& sql, db_util::OpenMode mode) {
  Execute(Open(path, mode), path, sql);
}

void RunSqlKilled(const std::string& path, const std::string& sql) {
  const db_util::Database db = Open(path);
  (void)sqlite3_db_config(db.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);  // cannot fail
  Execute(db, path, "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = WAL;" + sql);
}

std::string Query(const std::string& path, const std::string& sql, const char* end) {
  std::string text;
  for (const std::string& row : Rows(Open(path), sql, &db_util::ColumnText)) text += row + end;
  return text;
}

std::string SchemaOf(const std::string& path) {
  static const std::regex kTokens(R"('[^']*'|\w+|[^\s\w"'])");
  std::vector<std::string> statements =
      Rows(Open(path), "SELECT sql FROM sqlite_master WHERE sql IS NOT NULL", &db_util::ColumnText);
  for (std::string& statement : statements) {
    statement = std::regex_replace(statement, kTokens, "$& ", std::regex_constants::format_no_copy);
  }
  return Sorted("", std::move(statements));
}

Dumps DumpPackage(const package::PackagePaths& where) {
  Dumps dumps;
  (void)updater::ResumeLogs(where);  // an updater alone leaves them suspended
  for (const auto& [name, path] : DatabasesOf(where)) {
    std::string& text = dumps[name] = SchemaOf(path);
    const db_util::Database db = Open(path);
    const auto add = [&](const std::string& head, const std::string& sql) {
      text += Sorted(head, Rows(db, sql, &ExactText));
    };
    for (const char* setting : {"journal_mode", "auto_vacuum", "integrity_check"}) {
      add("", std::string("PRAGMA ") + setting);
    }
    for (const std::string& table :
         Rows(db, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY 1", &db_util::ColumnText)) {
      // A counter may start before the first row; the statistics depend on the size of pages.
      const std::string columns = table == "sqlite_stat1" ? "DISTINCT tbl, idx" : "*";
      add(table + ": ",
          "SELECT " + columns + " FROM " + table + (table == "sqlite_sequence" ? " WHERE seq > 0" : ""));
    }
  }
  return dumps;
}

std::map<std::string, std::string> ReadTree(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    files[entry.path().lexically_relative(folder)] = entry.is_directory() ? "folder" : ReadFile(entry.path());
  }
  return files;
}

}  // namespace tests
