// What a person wants to see of one upgrade.
#pragma once

#include <chrono>
#include <iosfwd>
#include <string>
#include <vector>

#include "ctl/demo_volumes.h"
#include "ctl/volume_survey.h"
#include "updater/framework/updater_framework.h"

namespace ctl {

// Takes the time of every phase of a run, and of every updater of its chain.
class StepTimes : public updater::RunObserver {
 public:
  struct Step {
    updater::Version from;
    updater::Version to;
    double start;  // milliseconds since the beginning
    double milliseconds;
    bool failed;
  };
  struct PhaseTime {
    updater::Phase phase;
    double start;
    double milliseconds;
  };

  // `next` is told the same, and may be null.
  explicit StepTimes(updater::RunObserver* next = nullptr) : next_(next) {}

  void BeginPhase(updater::Phase phase) override;
  void BeforeUpdate(const updater::AbstractUpdater& updater, updater::StepNumber step) override;
  void AfterUpdate(const updater::AbstractUpdater& updater, int result) override;
  void OnParts(const updater::Parts& parts) override;
  // The run begins now, and not when this object was made.
  void Begin();
  // The run is over, and with it its last phase.
  void Finish();

  [[nodiscard]] const std::vector<Step>& steps() const { return steps_; }
  [[nodiscard]] const std::vector<PhaseTime>& phases() const { return phases_; }
  [[nodiscard]] double total() const { return total_; }  // in milliseconds; 0 before Finish()

 private:
  [[nodiscard]] double Now() const;

  updater::RunObserver* next_;
  std::chrono::steady_clock::time_point origin_ = std::chrono::steady_clock::now();
  double start_ = 0;
  double total_ = 0;
  std::vector<Step> steps_;
  std::vector<PhaseTime> phases_;
};

// "copies", "updaters", "placing", "checking".
[[nodiscard]] const char* NameOf(updater::Phase phase);

// The databases of a kind that `after` has and `before` has not, by name.
[[nodiscard]] std::vector<std::string> MadeDatabases(const VolumeSurvey& before, const VolumeSurvey& after,
                                                     DatabaseSurvey::Kind kind);

// The users that `before` has and `after` has not.
[[nodiscard]] std::vector<std::string> RemovedUsers(const VolumeSurvey& before, const VolumeSurvey& after);

// "3 (a, b, c)", and how many more than `most` there are; "none".
[[nodiscard]] std::string List(const std::vector<std::string>& names, std::size_t most = 12);

void PrintChain(const StepTimes& times, std::ostream& out);

// The volumes as the run is shown them, and what it can therefore not show.
void PrintVolumes(const VolumeIdentity& own, const RecordedVolumes& recorded, std::ostream& out);

// The views and volumes for which `after` has a database and `before` has not.
void PrintMadeDatabases(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out);

// The users that `before` has and `after` has not.
void PrintRemovedUsers(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out);

}  // namespace ctl
