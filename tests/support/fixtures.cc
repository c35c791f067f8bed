#include "tests/support/fixtures.h"

#include <filesystem>
#include <stdexcept>
#include <vector>

#include "db-util/query.h"
#include "tests/support/temporary_folder.h"

namespace tests {
namespace {

namespace fs = std::filesystem;

const fs::path kData = UPDATER_TEST_DATA;
constexpr int kFirstVersionWithLog = 3300;
constexpr int kFirstVersionWithViews = 3400;

void Replace(std::string& text, const std::string& what, const std::string& with) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
}

std::string Quote(std::string text) {
  Replace(text, "'", "''");
  return "'" + text + "'";
}

// The script of that name which holds for the version; empty when there is none.
std::string FindScript(int version, const std::string& name) {
  std::string text;
  for (const int folder : kVersions) {
    const fs::path path = kData / std::to_string(folder) / (name + ".sql");
    if (folder <= version && fs::exists(path)) text = ReadFile(path);
  }
  return text;
}

void WriteDatabase(const std::string& path, const std::string& sql, int version, int stored_version) {
  const std::string branch = VersionOf(version).branch;
  fs::create_directories(fs::path(path).parent_path());
  if (fs::exists(path)) throw std::runtime_error(path + " exists");
  RunSql(path,
         "PRAGMA synchronous = OFF;" + sql +
             "INSERT OR REPLACE INTO config_table (key, value) VALUES ('version', '" +
             std::to_string(stored_version) + "')" +
             (branch.empty() ? "" : ", ('branch', '" + branch + "')") + ";",
         db_util::OpenMode::kCreate);
}

}  // namespace

updater::Version VersionOf(int number) {
  if (number == 2577) return {"", number};
  return {number == 2603 ? "hos-4.3" : updater::kMasterBranch, number};
}

void WriteFixture(int version, const std::string& uuid, const std::string& extra,
                  const updater::server::WorkingCopies& where) {
  const auto text_of = [&](const std::vector<std::string>& scripts) {
    std::string text;
    for (const std::string& head : {std::string(), "extra-" + extra + "-"}) {
      for (const std::string& script : scripts) text += FindScript(version, head + script);
    }
    Replace(text, "@UUID@", Quote(uuid));
    Replace(text, "@SYNC@", Quote(where.sync_folder));
    return text;
  };
  for (const char* folder : {"repo", "delta", "rm"}) fs::create_directories(where.sync_folder + "/" + folder);
  std::map<std::string, std::string> databases = {
      {"data", where.data}, {"user", where.user}, {"client", where.client}};
  if (version >= kFirstVersionWithLog) databases["log"] = where.log;
  for (const auto& [script, path] : databases) WriteDatabase(path, text_of({script}), version, version);
  if (version < kFirstVersionWithViews) return;
  // The step that splits the data database makes these at once as of the last version; the next one puts that
  // right.
  const int stored_version = version == kFirstVersionWithViews ? kVersions.back() : version;
  for (const auto& entry : fs::directory_iterator(kData / std::to_string(kFirstVersionWithViews))) {
    const std::string script = entry.path().stem();
    if (!script.starts_with("view-") || script == "view-config") continue;
    WriteDatabase(where.view_folder + "/" + script.substr(5) + "/view-db.sqlite",
                  text_of({"view", "view-config", script}), version, stored_version);
  }
  WriteDatabase(where.file_folder + "/" + uuid + "/file-db.sqlite", text_of({"file"}), version,
                stored_version);
}

void RunSql(const std::string& path, const std::string& sql, db_util::OpenMode mode) {
  db_util::Database db;
  std::string error;
  if (db_util::OpenQuietly(path, db, mode) != SQLITE_OK ||
      db_util::Execute(db.get(), sql, error) != SQLITE_OK) {
    throw std::runtime_error(path + ": " + error);
  }
}

std::string Query(const std::string& path, const std::string& sql) {
  db_util::Database db;
  std::string rows;
  const auto append = [&rows](sqlite3_stmt* row) {
    rows += db_util::ColumnText(row, 0) + " ";
    return true;
  };
  if (db_util::OpenQuietly(path, db, db_util::OpenMode::kReadWrite) != SQLITE_OK ||
      !db_util::ForEachRow(db.get(), sql, append).ok()) {
    throw std::runtime_error(path + ": " + sql);
  }
  return rows;
}

std::map<std::string, std::string> ReadTree(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    files[entry.path().lexically_relative(folder)] = entry.is_directory() ? "folder" : ReadFile(entry.path());
  }
  return files;
}

}  // namespace tests
