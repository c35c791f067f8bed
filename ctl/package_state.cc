#include "ctl/package_state.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "ctl/inspection.h"
#include "file-op/file_op.h"
#include "updater/framework/server_updater.h"
#include "updater/intent_file.h"
#include "updater/legacy/layout.h"
#include "updater/placement_items.h"
#include "updater/service_status.h"

namespace ctl {
namespace {

std::optional<PendingCommit> ReadCommit(const package::VolumePaths& paths) {
  using State = PendingCommit::State;
  updater::Intent intent;
  updater::IntentFound found{};
  if (!updater::ReadIntent(paths, found, intent)) return PendingCommit{.state = State::kUnreadable};
  if (found == updater::IntentFound::kNone) return std::nullopt;
  PendingCommit commit = {.state = found == updater::IntentFound::kValid ? State::kValid : State::kDamaged,
                          .parts = intent.size()};
  for (const updater::IntentItem& item : intent) {
    updater::ItemState state{};
    if (!updater::GetItemState(paths, item, state)) return PendingCommit{.state = State::kUnreadable};
    if (state == updater::ItemState::kDone) ++commit.placed;
    if (state == updater::ItemState::kChanged) {
      commit.changed.push_back(updater::PathsOf(paths, item).live);
    }
  }
  return commit;
}

std::vector<std::string> FindCopies(const package::PackagePaths& copies) {
  std::vector<std::string> found;
  for (const std::string* path :
       {&copies.user, &copies.data, &copies.log, &copies.client, &copies.view_folder, &copies.file_folder}) {
    if (file_op::Find(file_op::At(*path)) > 0) found.push_back(*path);
  }
  return found;
}

constexpr const char* kStartAgain = "set the status to \"initializing\" and start updater-svr again";

void AddServiceFindings(const ServiceState& service, Findings& findings) {
  if (service.is_marker_alive) {
    findings.push_back({Severity::kNote, "run-alive", "",
                        "an upgrade is running, process " + std::to_string(*service.marked_by),
                        "wait for it: what is shown here changes under one's eyes"});
  } else if (service.marked_by) {
    findings.push_back({Severity::kWarning, "stale-mark", "",
                        "the mark of an upgrade is there, but its process is gone: it was killed",
                        kStartAgain});
  }
  if (service.status == updater::status::kUpgradeFail) {
    findings.push_back({Severity::kProblem, "upgrade-failed", "", "the last upgrade failed",
                        "updater-ctl report tells why from its lines in the system log"});
  }
  if (service.status == updater::status::kError) {
    findings.push_back({Severity::kProblem, "run-killed", "",
                        "the status is \"" + service.stored + "\", but no living run stands behind it",
                        kStartAgain});
  }
}

void AddCommitFindings(const PendingCommit& commit, const std::string& intent, Findings& findings) {
  using State = PendingCommit::State;
  if (commit.state == State::kUnreadable) {
    findings.push_back({Severity::kProblem, "unreadable-commit", intent,
                        "what a run was putting in place cannot be read",
                        "look at the disk: no upgrade begins before it can be read"});
  } else if (commit.state == State::kDamaged) {
    findings.push_back(
        {Severity::kProblem, "damaged-commit", intent,
         "what a run was putting in place cannot be made out, so the databases may be of two versions",
         "restore all of them from a backup, or have somebody look who knows the layouts"});
  } else {
    findings.push_back({Severity::kProblem, "pending-commit", intent,
                        "a run was stopped when " + std::to_string(commit.placed) + " of " +
                            Count(commit.parts, "part") + " were in place",
                        "start no daemon and touch no .bak file; the next run of updater-svr finishes it"});
  }
  for (const std::string& path : commit.changed) {
    findings.push_back({Severity::kProblem, "changed-since", path,
                        "somebody has written to it since a run was stopped that was replacing it",
                        "restore all databases from a backup of before the upgrade and delete " + intent});
  }
}

bool IsShared(const DatabaseSurvey& database) { return database.kind == DatabaseSurvey::Kind::kShared; }

void AddDatabaseFindings(const VolumeSurvey& survey, Findings& findings) {
  const DatabaseSurvey* first = nullptr;
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.obstacle == DatabaseSurvey::Obstacle::kLocked) {
      findings.push_back({Severity::kProblem, "locked", database.path,
                          "somebody has locked it, so nobody can look into it",
                          "stop the package's daemons, or whoever works on it, and look again"});
    } else if (!database.error.empty()) {
      findings.push_back({Severity::kProblem, "unreadable-database", database.path, database.error,
                          IsShared(database)
                              ? "restore all databases of the package from one backup"
                              : "restore it from a backup, or move its folder away if it is nobody's"});
    }
    if (!database.version) continue;
    if (first == nullptr) first = &database;
    // The views and files that the split makes have a version of their own until the next step.
    const bool is_split = first->version->number > updater::kSplitVersion;
    // Up to 2577 one may be brought to the other, which updater-ctl check looks at.
    constexpr int kOld = updater::legacy::kLayoutVersion;
    if (first->version->number <= kOld && database.version->number <= kOld) continue;
    if ((IsShared(database) || is_split) && database.version != first->version) {
      findings.push_back({Severity::kProblem, "mixed-versions", database.path,
                          "its version is " + VersionText(database) + ", that of " + first->name + " is " +
                              VersionText(*first),
                          "an upgrade was restored in part: restore all databases from one backup"});
    }
  }
}

}  // namespace

ServiceState ReadServiceState(const platform::SystemPaths& system, platform::StateFiles& state_files) {
  constexpr std::size_t kLongestStatus = 64;
  ServiceState state;
  (void)updater::ServiceStatus(system, state_files).GetServiceStatus(state.status);  // always succeeds
  std::array<char, kLongestStatus> stored{};
  if (state_files.PLIBCFileGetKeyValue(system.service_status, updater::kStatusKey, stored, 0) > 0) {
    state.stored = stored.data();
  }
  state.is_enabled = access(system.package_enabled.c_str(), F_OK) == 0;
  if (access(system.upgrading_mark.c_str(), F_OK) == 0) {
    const pid_t pid = std::max(state_files.PLIBCReadPidFile(system.upgrading_mark), 0);
    state.marked_by = pid;
    state.is_marker_alive = pid > 0 && state_files.PLIBCProcAlive(pid) != 0;
  }
  return state;
}

PackageState ReadPackageState(const package::VolumePaths& paths, const platform::SystemPaths& system,
                              platform::StateFiles& state_files) {
  return {.service = ReadServiceState(system, state_files),
          .commit = ReadCommit(paths),
          .survey = SurveyVolume(paths.live, SurveyDepth::kVersions),
          .copies = FindCopies(paths.copies)};
}

Findings FindingsOf(const PackageState& state, const package::VolumePaths& paths) {
  Findings findings;
  AddServiceFindings(state.service, findings);
  if (state.commit) {
    AddCommitFindings(*state.commit, paths.intent, findings);
  } else {  // in the middle of a commit they are not equal, and that is told already
    Append(InspectData(state.survey, paths.live), findings);
    AddDatabaseFindings(state.survey, findings);
  }
  if (!state.copies.empty() && !state.commit && !state.service.is_marker_alive) {
    findings.push_back({Severity::kNote, "copies-left", state.copies.front(),
                        "a run that failed or was killed has left working copies",
                        "the next run replaces them"});
  }
  return findings;
}

}  // namespace ctl
