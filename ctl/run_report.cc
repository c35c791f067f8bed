#include "ctl/run_report.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <set>

#include "ctl/finding.h"
#include "ctl/output.h"
#include "ctl/version_graph.h"

namespace ctl {

std::vector<std::string> MadeDatabases(const VolumeSurvey& before, const VolumeSurvey& after,
                                       DatabaseSurvey::Kind kind) {
  std::vector<std::string> names;
  for (const DatabaseSurvey& database : after.databases) {
    const auto is_same = [&](const DatabaseSurvey& old) {
      return old.kind == kind && old.name == database.name;
    };
    if (database.kind == kind && std::none_of(before.databases.begin(), before.databases.end(), is_same)) {
      names.push_back(database.name);
    }
  }
  return names;
}

std::string List(const std::vector<std::string>& names, std::size_t most) {
  if (names.empty()) return "none";
  std::string text = std::to_string(names.size()) + " (";
  for (std::size_t i = 0; i < names.size() && i < most; ++i)
    text += (i == 0 ? "" : ", ") + Printable(names[i]);
  if (names.size() > most) text += " and " + std::to_string(names.size() - most) + " more";
  return text + ")";
}

void StepTimes::BeginPhase(updater::Phase phase) {
  Finish();
  phases_.push_back({phase, Now(), 0});
  if (next_ != nullptr) next_->BeginPhase(phase);
}

void StepTimes::BeforeUpdate(const updater::AbstractUpdater& updater, updater::StepNumber step) {
  start_ = Now();
  if (next_ != nullptr) next_->BeforeUpdate(updater, step);
}

void StepTimes::AfterUpdate(const updater::AbstractUpdater& updater, int result) {
  steps_.push_back({updater.GetFromVersion(), updater.GetToVersion(), start_, Now() - start_, result < 0});
  if (next_ != nullptr) next_->AfterUpdate(updater, result);
}

void StepTimes::OnParts(const updater::Parts& parts) {
  if (next_ != nullptr) next_->OnParts(parts);
}

void StepTimes::Begin() { origin_ = std::chrono::steady_clock::now(); }

void StepTimes::Finish() {
  total_ = Now();
  if (!phases_.empty()) phases_.back().milliseconds = total_ - phases_.back().start;
}

double StepTimes::Now() const {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - origin_).count();
}

const char* NameOf(updater::Phase phase) {
  switch (phase) {
    case updater::Phase::kCopies:
      return "copies";
    case updater::Phase::kUpdaters:
      return "updaters";
    case updater::Phase::kPlacing:
      return "placing";
    case updater::Phase::kChecking:
      break;
  }
  return "checking";
}

void PrintChain(const StepTimes& times, std::ostream& out) {
  if (times.steps().empty()) out << "  no updater ran\n";
  for (const StepTimes::Step& step : times.steps()) {
    out << "  " << std::left << std::setw(16) << TextOf(step.from) << " -> " << std::setw(16)
        << TextOf(step.to) << std::right << std::setw(9) << std::fixed << std::setprecision(1)
        << step.milliseconds << " ms" << (step.failed ? "  FAILED" : "") << "\n";
  }
}

void PrintVolumes(const VolumeIdentity& own, const RecordedVolumes& recorded, std::ostream& out) {
  const bool made_up = own.uuid == MadeUpIdentity().uuid;
  if (recorded.empty()) {
    out << "  ";
    PrintWrapped(2, "  ",
                 Join({"none is recorded; the uuid ", own.uuid, " is taken, ",
                       made_up ? "which is made up" : "that of the file system the folder is on"}),
                 out);
    return;
  }
  std::set<std::string> paths;
  bool shared_path = false;
  for (const auto& [uuid, path] : recorded) {
    out << "  " << Printable(uuid) << "  " << Printable(path) << "\n";
    shared_path = !paths.insert(path).second || shared_path;
  }
  out << "  They are taken for what is recorded of them. What a run on their own machine\n"
         "  does besides is not shown: it removes the records of a volume that is gone or\n"
         "  has another uuid by then, and below 4000 gives the uuid of a btrfs volume its\n"
         "  new form (shown for the volume that this folder is on).\n";
  if (shared_path) out << "  Some have the same path: all but one of them will count as gone there.\n";
}

void PrintMadeDatabases(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out) {
  const std::vector<std::string> views = MadeDatabases(before, after, DatabaseSurvey::Kind::kView);
  const std::vector<std::string> files = MadeDatabases(before, after, DatabaseSurvey::Kind::kFile);
  out << "  view databases: " << List(views) << "\n"
      << "  file databases: " << List(files) << "\n";
}

std::vector<std::string> RemovedUsers(const VolumeSurvey& before, const VolumeSurvey& after) {
  std::vector<std::string> removed;
  for (const std::string& user : before.users) {
    if (std::find(after.users.begin(), after.users.end(), user) == after.users.end()) removed.push_back(user);
  }
  return removed;
}

void PrintRemovedUsers(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out) {
  const std::vector<std::string> removed = RemovedUsers(before, after);
  for (const std::string& user : removed) {
    out << "  ";
    PrintWrapped(2, "    ",
                 Join({"removed ", Printable(user),
                       ": its account or share is gone from this machine, and its view with it"}),
                 out);
  }
  if (removed.empty()) out << "  every user is still there\n";
}

}  // namespace ctl
