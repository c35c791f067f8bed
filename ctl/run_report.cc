#include "ctl/run_report.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <set>

#include "ctl/version_graph.h"

namespace ctl {
namespace {

// The names of the databases of a kind that `after` has and `before` has not.
std::vector<std::string> Made(const VolumeSurvey& before, const VolumeSurvey& after,
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

// "3 (a, b, c)", and how many more there are; "none".
std::string List(const std::vector<std::string>& names) {
  constexpr std::size_t kShown = 12;
  if (names.empty()) return "none";
  std::string text = std::to_string(names.size()) + " (";
  for (std::size_t i = 0; i < names.size() && i < kShown; ++i) text += (i == 0 ? "" : ", ") + names[i];
  if (names.size() > kShown) text += " and " + std::to_string(names.size() - kShown) + " more";
  return text + ")";
}

}  // namespace

void StepTimes::BeforeUpdate(const updater::AbstractUpdater& /*updater*/) {
  start_ = std::chrono::steady_clock::now();
}

void StepTimes::AfterUpdate(const updater::AbstractUpdater& updater, int result) {
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start_;
  steps_.push_back(
      {TextOf(updater.GetFromVersion()), TextOf(updater.GetToVersion()), taken.count(), result < 0});
}

void PrintChain(const StepTimes& times, std::ostream& out) {
  if (times.steps().empty()) out << "  no updater ran\n";
  for (const StepTimes::Step& step : times.steps()) {
    out << "  " << std::left << std::setw(16) << step.from << " -> " << std::setw(16) << step.to << std::right
        << std::setw(9) << std::fixed << std::setprecision(1) << step.milliseconds << " ms"
        << (step.failed ? "  FAILED" : "") << "\n";
  }
}

void PrintVolumes(const VolumeIdentity& own, const RecordedVolumes& recorded, std::ostream& out) {
  const bool made_up = own.uuid == MadeUpIdentity().uuid;
  if (recorded.empty()) {
    out << "  none is recorded; the uuid " << own.uuid << " is taken, "
        << (made_up ? "which is made up" : "that of the file system the folder is on") << "\n";
    return;
  }
  std::set<std::string> paths;
  bool shared_path = false;
  for (const auto& [uuid, path] : recorded) {
    out << "  " << uuid << "  " << path << "\n";
    shared_path = !paths.insert(path).second || shared_path;
  }
  out << "  They are taken for what is recorded of them. What a run on their own machine does besides is not\n"
         "  shown: it removes the records of a volume that is gone or has another uuid by then, and below 4000\n"
         "  gives the uuid of a btrfs volume its new form (shown for the volume that this folder is on).\n";
  if (shared_path) out << "  Some have the same path: all but one of them will count as gone there.\n";
}

void PrintMadeDatabases(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out) {
  using Kind = DatabaseSurvey::Kind;
  const std::vector<std::string> views = Made(before, after, Kind::kView);
  const std::vector<std::string> files = Made(before, after, Kind::kFile);
  out << "  view databases: " << List(views) << "\n"
      << "  file databases: " << List(files) << "\n";
}

void PrintRemovedUsers(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out) {
  bool any = false;
  for (const std::string& user : before.users) {
    if (std::find(after.users.begin(), after.users.end(), user) != after.users.end()) continue;
    out << "  removed " << user << ": its account or share is gone from this machine, and its view with it\n";
    any = true;
  }
  if (!any) out << "  every user is still there\n";
}

}  // namespace ctl
