#include "tests/support/fixtures.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "db-util/database.h"

namespace tests {
namespace {

namespace fs = std::filesystem;

constexpr int kFirstVersionWithLog = 3300;
constexpr int kFirstVersionWithViews = 3400;

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The folders of the versions up to `version`, newest first.
std::set<int, std::greater<>> VersionFolders(int version) {
  std::set<int, std::greater<>> versions;
  for (const fs::directory_entry& entry : fs::directory_iterator(UPDATER_TEST_DATA)) {
    if (entry.is_directory() && std::stoi(entry.path().filename()) <= version) {
      versions.insert(std::stoi(entry.path().filename()));
    }
  }
  return versions;
}

// The script of that name which holds for the version; empty when there is none.
std::string FindScript(int version, const std::string& name) {
  for (const int folder : VersionFolders(version)) {
    const fs::path path = fs::path(UPDATER_TEST_DATA) / std::to_string(folder) / (name + ".sql");
    if (fs::exists(path)) return ReadFile(path);
  }
  return {};
}

// The ids of the views that have rows of their own at the version.
std::set<std::string> FindViews(int version) {
  std::set<std::string> ids;
  for (const int folder : VersionFolders(version)) {
    for (const auto& entry : fs::directory_iterator(fs::path(UPDATER_TEST_DATA) / std::to_string(folder))) {
      const std::string name = entry.path().stem();
      const std::string id = name.starts_with("view-") ? name.substr(5) : "";
      if (!id.empty() && id.find_first_not_of("0123456789") == std::string::npos) ids.insert(id);
    }
  }
  return ids;
}

std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (const char letter : text) quoted += letter == '\'' ? std::string("''") : std::string(1, letter);
  return quoted + "'";
}

void Replace(std::string& text, const std::string& what, const std::string& with) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
}

}  // namespace

updater::Version VersionOf(int number) {
  if (number == 2577) return {"", number};
  return {number == 2603 ? "hos-4.3" : updater::kMasterBranch, number};
}

Fixture::Fixture(int version, std::string uuid, std::string extra)
    : version_(version), uuid_(std::move(uuid)), extra_(std::move(extra)) {}

std::string Fixture::Text(const std::string& script, const std::string& sync_folder) const {
  std::string text = FindScript(version_, script);
  Replace(text, "@UUID@", Quote(uuid_));
  Replace(text, "@SYNC@", Quote(sync_folder));
  return text;
}

void Fixture::WriteDatabase(const std::string& path, std::string sql, int stored_version) const {
  const std::string branch = VersionOf(version_).branch;
  sql += "INSERT OR REPLACE INTO config_table (key, value) VALUES ('version', '" +
         std::to_string(stored_version) + "')" + (branch.empty() ? "" : ", ('branch', '" + branch + "')") +
         ";";
  fs::create_directories(fs::path(path).parent_path());
  if (fs::exists(path)) throw std::runtime_error(path + " exists");
  db_util::Database created;
  if (db_util::OpenQuietly(path, created, db_util::OpenMode::kCreate) != SQLITE_OK) {
    throw std::runtime_error("cannot create " + path);
  }
  created.reset();
  RunSql(path, "PRAGMA synchronous = OFF;" + sql);
}

void Fixture::WriteViews(const updater::server::WorkingCopies& where) const {
  // The step that splits the data database makes these at once as of the last version; the next one puts that
  // right.
  const int stored_version = version_ == kFirstVersionWithViews ? 4150 : version_;
  for (const std::string& id : FindViews(version_)) {
    std::string sql;
    for (const std::string& origin : {std::string(), "extra-" + extra_ + "-"}) {
      for (const std::string& script : {std::string("view"), std::string("view-config"), "view-" + id}) {
        sql += Text(origin + script, where.sync_folder);
      }
    }
    WriteDatabase(where.view_folder + "/" + id + "/view-db.sqlite", sql, stored_version);
  }
  WriteDatabase(where.file_folder + "/" + uuid_ + "/file-db.sqlite", Text("file", where.sync_folder),
                stored_version);
}

void Fixture::Write(const updater::server::WorkingCopies& where) const {
  for (const char* folder : {"repo", "delta", "rm"}) fs::create_directories(where.sync_folder + "/" + folder);
  std::map<std::string, std::string> databases = {
      {"data", where.data}, {"user", where.user}, {"client", where.client}};
  if (version_ >= kFirstVersionWithLog) databases["log"] = where.log;
  for (const auto& [script, path] : databases) {
    WriteDatabase(path,
                  Text(script, where.sync_folder) + Text("extra-" + extra_ + "-" + script, where.sync_folder),
                  version_);
  }
  if (version_ >= kFirstVersionWithViews) WriteViews(where);
}

updater::server::WorkingCopies PackageIn(const std::string& folder) {
  const std::string sync_folder = folder + "/sync";
  return {.sync_folder = sync_folder,
          .data = sync_folder + "/data.sqlite",
          .log = sync_folder + "/log.sqlite",
          .user = sync_folder + "/user.sqlite",
          .client = folder + "/client.sqlite",
          .view_folder = sync_folder + "/view",
          .file_folder = sync_folder + "/file"};
}

void RunSql(const std::string& path, const std::string& sql) {
  db_util::Database db;
  std::string error;
  if (db_util::OpenQuietly(path, db, db_util::OpenMode::kReadWrite) != SQLITE_OK ||
      db_util::Execute(db.get(), sql, error) != SQLITE_OK) {
    throw std::runtime_error(path + ": " + error);
  }
}

std::map<std::string, std::string> ReadTree(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    files[entry.path().lexically_relative(folder)] = entry.is_directory() ? "folder" : ReadFile(entry.path());
  }
  return files;
}

}  // namespace tests
