#include "ctl/run_report.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace ctl {
namespace {

std::string WithoutBlank(const updater::Version& version) {
  std::string text = updater::ToString(version);
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

}  // namespace

void StepTimes::BeforeUpdate(const updater::AbstractUpdater& /*updater*/) {
  start_ = std::chrono::steady_clock::now();
}

void StepTimes::AfterUpdate(const updater::AbstractUpdater& updater, int result) {
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start_;
  steps_.push_back({WithoutBlank(updater.GetFromVersion()), WithoutBlank(updater.GetToVersion()),
                    taken.count(), result < 0});
}

void PrintChain(const StepTimes& times, std::ostream& out) {
  if (times.steps().empty()) out << "  no updater ran\n";
  for (const StepTimes::Step& step : times.steps()) {
    out << "  " << std::left << std::setw(16) << step.from << " -> " << std::setw(16) << step.to << std::right
        << std::setw(9) << std::fixed << std::setprecision(1) << step.milliseconds << " ms"
        << (step.failed ? "  FAILED" : "") << "\n";
  }
}

void PrintMadeDatabases(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out) {
  VolumeSurvey made;
  for (const DatabaseSurvey& database : after.databases) {
    const bool was_there = std::any_of(before.databases.begin(), before.databases.end(),
                                       [&](const DatabaseSurvey& old) { return old.name == database.name; });
    if (database.kind != DatabaseSurvey::Kind::kShared && !was_there) made.databases.push_back(database);
  }
  PrintSurvey(made, out);
}

void PrintRemovedUsers(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out) {
  bool any = false;
  for (const std::string& user : before.users) {
    if (std::find(after.users.begin(), after.users.end(), user) != after.users.end()) continue;
    out << "  removed " << user << ": its account is gone from this machine\n";
    any = true;
  }
  if (!any) out << "  every user is still there\n";
}

}  // namespace ctl
