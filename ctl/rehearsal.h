// An upgrade tried on copies.
#pragma once

#include <set>
#include <string>

#include "ctl/driver_run.h"
#include "ctl/finding.h"
#include "ctl/rehearsal_place.h"
#include "ctl/volume_survey.h"
#include "updater/progress_line.h"

namespace ctl {

// The machine that a rehearsal takes for its own.
enum class Machine {
  kThis,      // accounts, shares, services and volumes of this one
  kRecorded,  // what the databases record, as with `updater-ctl run`: for data of another machine
};

// The real driver runs on copies of the databases. It differs from a real run in this:
//
// - It begins enabled and "initializing", whatever the package's state is, and does not say what that would
//   do. State files, the mark, the scratch database and the lock of the users are its own.
// - Accounts, shares and services are those of this machine and only read. The folder of the copies counts as
//   the volume. That somebody may use the application is noted and not stored, and nobody is refused.
// - A volume from before 3400 is recorded with the path of the copies.
// - The copies are all in one folder and on one file system, in folders of their own without links, where
//   nothing is mounted, read-only or immutable: what could fail for that does not. Neither does what another
//   program does during the run. Stored files are left out.
// - The debug configuration of the package is not read, so nothing is logged at its levels.
struct Rehearsal {
  explicit Rehearsal(updater::RunObserver* watcher) : run(watcher) {}

  std::string started;  // "2026-01-31T12:00:00Z"
  double copy_milliseconds = 0;
  VolumeSurvey before;  // of the real volume
  VolumeSurvey after;   // of the copies
  RunRecord run;
  std::vector<logger::RecordingSink::Line> log;  // of the run, as it would name its files on the volume
  std::set<std::string> allowed;                 // who would be allowed the application
  Findings findings;
};

// Makes it. `system` has the paths of the real machine. Returns 0, or -1 with the reason in `error` when it
// could not be tried. The live databases are only read.
[[nodiscard]] int Rehearse(const RehearsalPlace& place, const platform::SystemPaths& system, Machine machine,
                           updater::ProgressLine& progress, Rehearsal& rehearsal, std::string& error);

}  // namespace ctl
