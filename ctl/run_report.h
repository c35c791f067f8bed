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

// Takes the time of every updater of a chain.
class StepTimes : public updater::RunObserver {
 public:
  struct Step {
    std::string from;
    std::string to;
    double milliseconds;
    bool failed;
  };

  void BeforeUpdate(const updater::AbstractUpdater& updater) override;
  void AfterUpdate(const updater::AbstractUpdater& updater, int result) override;

  [[nodiscard]] const std::vector<Step>& steps() const { return steps_; }

 private:
  std::chrono::steady_clock::time_point start_;
  std::vector<Step> steps_;
};

void PrintChain(const StepTimes& times, std::ostream& out);

// The volumes as the run is shown them, and what it can therefore not show.
void PrintVolumes(const VolumeIdentity& own, const RecordedVolumes& recorded, std::ostream& out);

// The views and volumes for which `after` has a database and `before` has not.
void PrintMadeDatabases(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out);

// The users that `before` has and `after` has not.
void PrintRemovedUsers(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out);

}  // namespace ctl
