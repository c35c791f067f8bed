#include "ctl/rehearsal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <tuple>

#include "ctl/demo_platform.h"
#include "ctl/demo_state.h"
#include "ctl/rehearsal_machine.h"
#include "db-util/database_files.h"

namespace ctl {
namespace {

// What changes when somebody writes to a file: inode, size, and both parts of the time.
using FileMark = std::tuple<ino_t, off_t, time_t, long>;

// Of each database with its companions. The index of a log is written by those who read, too.
std::vector<FileMark> MarksOf(const VolumeSurvey& survey) {
  std::vector<FileMark> marks;
  for (const DatabaseSurvey& database : survey.databases) {
    for (const std::string& file : db_util::DatabaseFiles(database.path)) {
      struct stat status {};
      if (file.ends_with("-shm") || stat(file.c_str(), &status) != 0) continue;
      marks.emplace_back(status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
    }
  }
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

int CopyUnchanged(const package::VolumePaths& from, const package::VolumePaths& to, Rehearsal& rehearsal,
                  std::string& error) {
  const auto start = std::chrono::steady_clock::now();
  const std::vector<FileMark> marks = MarksOf(rehearsal.before);
  if (CopyPackage(from, to, rehearsal.findings, error) < 0) return -1;
  rehearsal.copy_milliseconds =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  if (MarksOf(rehearsal.before) == marks) return 0;
  error = "somebody has written to the databases while they were copied: stop the package's daemons";
  return -1;
}

void AddLogFindings(const Rehearsal& rehearsal, Findings& findings) {
  for (const auto& [priority, text] : rehearsal.log) {
    const std::string line = text.substr(0, text.find('\n'));
    if (line.starts_with("uuid changed for ")) {
      findings.push_back({Severity::kWarning, "volume-changed", "", line,
                          "the records of that volume would be removed: mount it before the upgrade"});
    } else if (line.starts_with("warning: ")) {
      findings.push_back({Severity::kWarning, "run-warning", "", line, ""});
    }
  }
}

void AddFindings(const std::string& volume, Machine machine, Rehearsal& rehearsal) {
  Findings& findings = rehearsal.findings;
  if (!rehearsal.run.is_done) {
    std::string line = rehearsal.log.empty() ? "" : rehearsal.log.back().text;
    line = line.substr(0, line.find('\n'));
    findings.push_back({Severity::kProblem, "upgrade-would-fail", volume,
                        "the upgrade would end in \"" + rehearsal.run.status + "\": " + line,
                        "the log of the rehearsal tells the first failure; mend it and rehearse again"});
  }
  if (machine == Machine::kThis && geteuid() != 0) {
    findings.push_back({Severity::kWarning, "not-root", "",
                        "what only root may read counts as a failure or as not there",
                        "rehearse as root, as updater-svr runs; --recorded needs no root"});
  }
  const std::vector<std::string> removed = RemovedUsers(rehearsal.before, rehearsal.after);
  if (!removed.empty()) {
    findings.push_back({Severity::kWarning, "users-removed", "",
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
  AddLogFindings(rehearsal, findings);
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
  progress.Show("counting rows");
  rehearsal.before = SurveyVolume(live.live, SurveyDepth::kRows);
  progress.Show("copying the databases");
  if (CopyUnchanged(live, copies, rehearsal, error) < 0) return -1;
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
  AddFindings(place.volume, machine, rehearsal);
  return 0;
}

}  // namespace ctl
