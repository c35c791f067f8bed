#include "updater/framework/stored_version.h"

#include <cstdlib>
#include <limits>

#include "db-util/database.h"
#include "db-util/query.h"
#include "updater/framework/updater_log.h"

namespace updater {
namespace {

// What the rows of a configuration say. Every row overwrites the value, so the last one wins; without a row
// it keeps what it held.
db_util::Status ReadValue(sqlite3* db, const std::string& query, std::string& value, bool& found) {
  found = false;
  return db_util::ForEachRow(db, query, [&](sqlite3_stmt* row) {
    value = db_util::ColumnText(row, 0);
    found = true;
    return true;
  });
}

std::string ReasonOf(const db_util::Status& failure) {
  return failure.message + " (" + std::to_string(failure.code) + ")";
}

std::string ReadVersion(const std::string& path, Version& out) {
  db_util::Database db;
  const db_util::Status status =
      db_util::OpenQuietly(path, db, db_util::OpenMode::kReadWrite, db_util::Links::kTrusted);
  if (!status.ok()) return ReasonOf(status);
  db_util::UseAlone(db.get());
  return ReadVersionFrom(db.get(), out);
}

}  // namespace

std::string ReadVersionFrom(sqlite3* db, Version& out) {
  std::string value;
  bool found = false;
  db_util::Status status =
      ReadValue(db, "SELECT value FROM config_table WHERE key = 'branch';", value, found);
  const std::string branch = value;
  // The value is not cleared in between, so without a version row the branch is parsed as the number; keep it
  // so.
  if (status.ok()) {
    status = ReadValue(db, "SELECT value FROM config_table WHERE key = 'version';", value, found);
  }
  if (!status.ok()) return ReasonOf(status);
  const std::optional<int> number = ParseVersionNumber(value);
  if (!number && !found) return "config_table has no row for it";
  if (!number)
    return "'" + logger::CutInTheMiddle(value, logger::kLongestShownValue) + "' is no version number";
  out = {branch, *number};
  return {};
}

std::optional<int> ParseVersionNumber(const std::string& text) {
  const long long number = std::strtoll(text.c_str(), nullptr, 10);  // beyond its range, the nearest one
  using Limits = std::numeric_limits<int>;
  if (number == 0 || number < Limits::min() || number > Limits::max()) return std::nullopt;
  return static_cast<int>(number);
}

int ReadStoredVersion(const std::string& path, Version& out) {
  const std::string reason = ReadVersion(path, out);
  if (reason.empty()) return 0;
  LogUnreadableVersion(path, reason);
  return -1;
}

void LogUnreadableVersion(const std::string& path, const std::string& reason) {
  UpdaterLog("cannot read the version of database %s: %s\n", path, reason);
}

}  // namespace updater
