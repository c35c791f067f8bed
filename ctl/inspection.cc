#include "ctl/inspection.h"

#include <algorithm>
#include <list>
#include <map>
#include <set>
#include <tuple>

#include "ctl/grouped_findings.h"
#include "db-util/execute.h"
#include "db-util/look.h"
#include "db-util/query.h"
#include "logger/recording_sink.h"
#include "platform/sdk/volume_uuid.h"
#include "updater/framework/server_updater.h"
#include "user-mgr/user_manager.h"

namespace ctl {
namespace {

using Kind = DatabaseSurvey::Kind;

// The check expects the column that the table has from 3450 on. Everything else it makes if it is missing.
constexpr const char* kUpdateProfiles = "ALTER TABLE profile_table ADD COLUMN attribute INTEGER DEFAULT 0;";

constexpr const char* kRestore =
    "restore it from a backup: an upgrade would stop at it, or carry the damage on";

struct UserRow {
  std::string name;
  std::string view;
  bool has_view_id = false;
};

db_util::Status ReadUsers(const std::string& path, std::vector<UserRow>& users) {
  db_util::Database db;
  db_util::Status status = db_util::OpenToLook(path, db);
  if (!status.ok()) return status;
  return db_util::ForEachRow(
      db.get(), "SELECT name, view_id, typeof(view_id) = 'integer' AND view_id >= 0 FROM user_table;",
      [&users](sqlite3_stmt* row) {
        users.push_back(
            {db_util::ColumnText(row, 0), db_util::ColumnText(row, 1), sqlite3_column_int(row, 2) != 0});
        return true;
      });
}

// Nothing of one that is locked: the survey tells of it.
Findings Unreadable(const std::string& path, const db_util::Status& status) {
  if (status.IsBusy()) return {};
  return {{Severity::kProblem, "unreadable-database", path, status.message, kRestore}};
}

}  // namespace

Findings InspectData(const VolumeSurvey& survey, const package::PackagePaths& paths) {
  if (FindShared(survey, "data") != nullptr) return {};
  constexpr const char* kMissing = "is not there: a run would end in \"done\" and do nothing";
  if (survey.databases.empty()) return {{Severity::kNote, "no-data-database", paths.data, kMissing, ""}};
  return {{Severity::kProblem, "no-data-database", paths.data, kMissing,
           "others are there: restore all databases of the package from one backup"}};
}

Findings InspectParts(const VolumeSurvey& survey, const package::PackagePaths& paths, int version) {
  Findings findings;
  for (const auto& [name, path, since] : {std::tuple("user", paths.user, 0),
                                          {"client", paths.client, 0},
                                          {"log", paths.log, updater::kLogVersion}}) {
    if (version < since || FindShared(survey, name) != nullptr) continue;
    findings.push_back({Severity::kProblem, "missing-database", path, "is missing: an upgrade would fail",
                        "restore all databases of the package from one backup"});
  }
  return findings;
}

Findings InspectIntegrity(const VolumeSurvey& survey, Integrity integrity) {
  constexpr const char* kAdvice = "restore it from a backup, or rebuild it from what can still be read";
  Grouped findings;
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.obstacle != DatabaseSurvey::Obstacle::kNone) continue;  // which tells of no damage
    db_util::Database db;
    std::string result;
    db_util::Status status = db_util::OpenToLook(database.path, db);
    if (status.ok()) {
      status = db_util::ForEachRow(
          db.get(), integrity == Integrity::kQuick ? "PRAGMA quick_check(1);" : "PRAGMA integrity_check(1);",
          [&result](sqlite3_stmt* row) {
            result = db_util::ColumnText(row, 0);
            return true;
          });
    }
    if (!status.ok()) result = status.message;
    std::replace(result.begin(), result.end(), '\n', ' ');  // its heading stands on a line of its own
    if (result != "ok")
      findings.Add(Severity::kProblem, "damaged", "is damaged: " + result, kAdvice, database);
  }
  return findings.Get();
}

Findings InspectViews(const VolumeSurvey& survey, const package::PackagePaths& paths) {
  Findings findings;
  std::vector<UserRow> users;
  const db_util::Status status = ReadUsers(paths.user, users);
  if (!status.ok()) return Unreadable(paths.user, status);
  std::set<std::string> views;
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.kind == Kind::kView) views.insert(database.name);
  }
  std::map<std::string, std::string> owners;
  for (const UserRow& user : users) {
    const auto [owner, is_first] = owners.try_emplace(user.view, user.name);
    if (!user.has_view_id) {
      findings.push_back({Severity::kProblem, "damaged-view-id", user.name,
                          "the view id of this user is '" + user.view + "', which is no view id",
                          "put a whole number that no other row has into this row of user_table"});
    } else if (!is_first) {
      findings.push_back({Severity::kProblem, "shared-view-id", user.name,
                          "has view " + user.view + ", which user '" + owner->second + "' has, too",
                          "give one of the two rows of user_table a view of its own"});
    } else if (!views.contains(user.view)) {
      findings.push_back(
          {Severity::kProblem, "user-without-view", user.name,
           "has view " + user.view + ", which has no database: an upgrade would fail",
           "restore " + paths.ViewDatabase(user.view) + ", or remove the user in the package"});
    }
  }
  for (const std::string& view : views) {
    if (owners.contains(view)) continue;
    findings.push_back({Severity::kNote, "view-without-user", "view " + view,
                        "belongs to no user; an upgrade carries it along", ""});
  }
  return findings;
}

bool AreMost(std::size_t removed, std::size_t users) { return 2 * removed > users; }

Findings InspectUsers(const package::PackagePaths& paths, const platform::Platform& platform) {
  constexpr std::string_view kWarning = "[WARNING] ";
  constexpr std::string_view kCheck = "UserManager::SelfCheck: ";
  // The real check, on a database that forgets what is written to it.
  db_util::Database db;
  const db_util::Status status = db_util::OpenToLook(paths.user, db);
  if (!status.ok()) return Unreadable(paths.user, status);
  (void)db_util::Execute(db.get(), kUpdateProfiles);  // needed from 3200 to 3400 only
  std::size_t users = 0;
  (void)db_util::ForEachRow(db.get(), "SELECT count(*) FROM user_table;", [&users](sqlite3_stmt* row) {
    users = static_cast<std::size_t>(sqlite3_column_int64(row, 0));
    return true;
  });  // what cannot be read is told of below
  logger::RecordingSink log;
  const logger::ScopedSink scope(log);
  user_mgr::UserManager::Configure(platform, "");
  std::list<user_mgr::ViewId> gone;
  const bool checked = user_mgr::UserManager::InitializePrivate(std::move(db)) == 0 &&
                       user_mgr::UserManager::SelfCheck(gone) == 0;
  user_mgr::UserManager::Destroy();
  Findings findings;
  std::size_t removed = 0;
  for (const logger::RecordingSink::Line& line : log.lines()) {
    const std::size_t begin = line.text.find(kCheck);
    if (begin == std::string::npos || !line.text.starts_with(kWarning)) continue;
    const std::string said = line.text.substr(begin + kCheck.size());
    if (said.starts_with("removed user ")) ++removed;
    findings.push_back({Severity::kWarning, "user-would-change", "",
                        "the check after an upgrade: " + said.substr(0, said.find('\n')),
                        "see that the account, share or directory is there before the upgrade"});
  }
  if (AreMost(removed, users)) {
    findings.push_back({Severity::kProblem, "most-users-removed", paths.user,
                        "the check after an upgrade would remove " + std::to_string(removed) + " of " +
                            Count(users, "user") + " with their views",
                        "see that this machine has its accounts and shares back before the upgrade"});
  }
  if (!checked) {
    const std::string reason = log.lines().empty() ? "" : ": " + log.lines().back().text;
    findings.push_back({Severity::kWarning, "users-not-compared", paths.user,
                        "the users cannot be compared with this machine" + reason,
                        "end whatever uses the database, and look whether the machine knows its accounts"});
  }
  return findings;
}

Findings InspectVolumes(const package::PackagePaths& paths, int version, const platform::Platform& platform) {
  constexpr int kUuidsInNewForm = 4000;
  db_util::Database db;
  Findings findings;
  std::map<std::string, std::string> volumes;
  db_util::Status status = db_util::OpenToLook(paths.data, db);
  if (status.ok()) {
    status = db_util::ForEachRow(db.get(), "SELECT uuid, repo_path FROM volume_table;",
                                 [&volumes](sqlite3_stmt* row) {
                                   volumes[db_util::ColumnText(row, 0)] = db_util::ColumnText(row, 1);
                                   return true;
                                 });
  }
  if (!status.ok()) return Unreadable(paths.data, status);
  db.reset();
  for (const auto& [recorded, path] : volumes) {
    std::string present;
    std::string old_form;
    const int result = platform::sdk::GetVolumeUuid(platform.volumes, path, present);
    if (result >= 0 && present == recorded) continue;
    const bool is_old_form = version < kUuidsInNewForm &&
                             platform::sdk::GetOldBtrfsUuid(platform.volumes, path, old_form) == 0 &&
                             old_form == recorded;
    if (is_old_form) continue;
    if (result == platform::kCouldNotAsk) {
      findings.push_back(
          {Severity::kProblem, "volume-not-asked", path,
           "the machine does not tell the uuid of this volume: the check after an upgrade fails",
           "look whether it is mounted and can be read"});
    } else {
      findings.push_back({Severity::kWarning, "volume-changed", path,
                          "is recorded as " + recorded +
                              (result < 0 ? ", but is gone" : ", but is " + present) +
                              ": the check after an upgrade removes its records",
                          "mount the volume that is meant before the next upgrade"});
    }
  }
  return findings;
}

}  // namespace ctl
