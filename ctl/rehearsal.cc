#include "ctl/rehearsal.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <tuple>

#include "ctl/demo_platform.h"
#include "ctl/demo_state.h"
#include "ctl/inspection.h"
#include "ctl/log_line.h"
#include "ctl/log_runs.h"
#include "ctl/output.h"
#include "ctl/rehearsal_machine.h"
#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "updater/framework/views.h"

namespace ctl {
namespace {

// What changes when somebody writes to a file: inode, size, and both parts of the time.
using FileMark = std::tuple<ino_t, off_t, time_t, long>;

void AddMarks(const std::string& database, std::vector<FileMark>& marks) {
  for (const std::string& file : db_util::DatabaseFiles(database)) {
    struct stat status {};
    // The index of a log is written by those who read, too.
    if (file.ends_with("-shm") || stat(file.c_str(), &status) != 0) continue;
    marks.emplace_back(status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
  }
}

// Of each database with its companions.
std::vector<FileMark> MarksOf(const package::PackagePaths& paths) {
  std::vector<FileMark> marks;
  for (const std::string& database : {paths.data, paths.user, paths.log, paths.client})
    AddMarks(database, marks);
  const auto add = [&marks](const std::string& database) {
    AddMarks(database, marks);
    return true;
  };
  (void)updater::ForEachFolderDatabase(paths, add);  // the copying fails at folders that cannot be listed
  return marks;
}

std::string Now() {
  const std::time_t now = std::time(nullptr);
  std::tm fields{};
  std::array<char, sizeof "2026-01-31T12:00:00Z"> text{};
  (void)std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&now, &fields));  // fits
  return text.data();
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// Counts the rows and copies the databases, all as they are at one moment.
int CopyUnchanged(const package::VolumePaths& from, const package::VolumePaths& to,
                  updater::ProgressLine& progress, Rehearsal& rehearsal, std::string& error) {
  constexpr int kClockTickMilliseconds = 20;
  const std::vector<FileMark> marks = MarksOf(from.live);
  // Times of files are as coarse as the clock of the kernel: what is written from now on has another one.
  (void)poll(nullptr, 0, kClockTickMilliseconds);
  progress.Show("counting rows");
  rehearsal.before = SurveyVolume(from.live, SurveyDepth::kRows);
  for (const DatabaseSurvey& database : rehearsal.before.databases) {
    // Copied under the lock it would lack what is not committed yet, and its rows cannot be counted.
    if (database.obstacle == DatabaseSurvey::Obstacle::kLocked) {
      error = database.path + " is locked: stop the package's daemons, or whoever works on it";
    }
  }
  if (error.empty()) error = NoAccessTo(rehearsal.before);
  if (!error.empty()) return -1;
  progress.Show("copying the databases");
  const auto start = std::chrono::steady_clock::now();
  if (CopyPackage(from, to, rehearsal.findings, error) < 0) return -1;
  rehearsal.copy_milliseconds =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (MarksOf(from.live) == marks) return 0;
  error = "somebody has written to the databases while they were copied: stop the package's daemons";
  return -1;
}

// What the lines mean that a run writes, and the cause where it has failed.
void AddLogFindings(const Rehearsal& rehearsal, Findings& findings) {
  LogRuns logged(1);
  for (const auto& [priority, text] : rehearsal.log) {
    std::string one_line = WithoutLineEnd(text);
    for (const char blank : {'\n', '\t'}) std::replace(one_line.begin(), one_line.end(), blank, ' ');
    LogLine line = ParseLogLine(one_line);
    line.source = LogLine::Source::kUpdater;
    logged.Add(line);
  }
  if (logged.runs().empty()) return;
  LoggedRun run = logged.runs().back();
  run.stored_status = rehearsal.run.status;
  const SeenCause* const cause = ProbableCause(run);
  if (cause != nullptr) findings.push_back(FindingOf(*cause, Severity::kProblem));
  for (Finding& finding : FurtherFindings(run, cause)) {
    if (finding.code == "user-removed") continue;  // is told of all of them at once
    // What an upgrade that succeeds would remove is no reason not to make it.
    finding.severity = std::min(finding.severity, Severity::kWarning);
    findings.push_back(std::move(finding));
  }
}

void AddFindings(const package::VolumePaths& live, Machine machine, Rehearsal& rehearsal) {
  Findings& findings = rehearsal.findings;
  if (!rehearsal.run.is_done) {
    findings.push_back({Severity::kProblem, "upgrade-would-fail", "",
                        "the upgrade would end in \"" + rehearsal.run.status + "\"",
                        "mend the cause that is named next, and rehearse again"});
  }
  AddLogFindings(rehearsal, findings);
  Append(InspectData(rehearsal.before, live.live), findings);
  if (machine == Machine::kThis && geteuid() != 0) {
    findings.push_back({Severity::kWarning, "not-root", "",
                        "what only root may read counts as a failure or as not there",
                        "rehearse as root, as updater-svr runs; --recorded needs no root"});
  }
  const std::vector<std::string> removed = RemovedUsers(rehearsal.before, rehearsal.after);
  if (!removed.empty()) {
    const bool is_most = AreMost(removed.size(), rehearsal.before.users.size());
    findings.push_back({is_most ? Severity::kProblem : Severity::kWarning, "users-removed", "",
                        "these users would be removed with their views: " + List(removed),
                        "if they are not gone, see to it that this machine knows their accounts and shares"});
  }
  for (const DatabaseSurvey& database : rehearsal.before.databases) {
    if (!database.user) continue;
    findings.push_back(
        {Severity::kWarning, "in-use", database.path,
         "somebody has it open" + (*database.user > 0 ? ", process " + std::to_string(*database.user) : ""),
         "stop the package's daemons before the upgrade"});
  }
}

void Run(const RehearsalPlace& place, const platform::SystemPaths& system, Machine machine,
         Rehearsal& rehearsal) {
  const std::string& folder = place.folder.path();
  if (machine == Machine::kThis) {
    RehearsalMachine real(system, place.volume, folder);
    RunDriver(folder, false, place.paths, real.platform(), rehearsal.run);
    rehearsal.allowed = real.allowed();
    return;
  }
  const package::PackagePaths copies = package::VolumePaths(folder).live;
  DemoPlatform demo(copies.user, ReadIdentity(place.volume), ReadRecordedVolumes(copies.data));
  RunDriver(folder, false, place.paths, demo.platform(), rehearsal.run);
  rehearsal.allowed = demo.allowed();
}

}  // namespace

int Rehearse(const RehearsalPlace& place, const platform::SystemPaths& system, Machine machine,
             updater::ProgressLine& progress, Rehearsal& rehearsal, std::string& error) {
  const package::VolumePaths live(place.volume);
  const package::VolumePaths copies(place.folder.path());
  const updater::ScopedObserver watching(&progress);  // of what is done before and after the run, too
  rehearsal.started = Now();
  if (CopyUnchanged(live, copies, progress, rehearsal, error) < 0) return -1;
  platform::host::HostStateFiles state_files;
  MadeFolders made;
  if (PrepareState(place.paths, state_files, made, error) < 0) return -1;
  made.Keep();  // they go with the folder
  Run(place, system, machine, rehearsal);
  progress.Show("counting rows");
  rehearsal.after = SurveyVolume(copies.live, SurveyDepth::kRows);
  for (const auto& [priority, text] : rehearsal.run.log.lines()) {
    rehearsal.log.push_back({priority, Replace(text, place.folder.path(), place.volume)});
  }
  AddFindings(live, machine, rehearsal);
  if (!rehearsal.run.is_done) return 0;
  for (Finding& finding : InspectUpgraded(rehearsal.after)) {
    finding.subject = Replace(finding.subject, place.folder.path(), place.volume);
    finding.text = Replace(finding.text, place.folder.path(), place.volume);
    rehearsal.findings.push_back(std::move(finding));
  }
  return 0;
}

}  // namespace ctl
