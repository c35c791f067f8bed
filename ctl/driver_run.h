// One run of the real driver in this process, and everything that it leaves behind for a report.
#pragma once

#include <iosfwd>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/run_report.h"
#include "logger/recording_sink.h"
#include "platform/platform.h"
#include "platform/system_paths.h"

namespace ctl {

struct RunRecord {
  // `watcher` is told what the run tells, and may be null.
  explicit RunRecord(updater::RunObserver* watcher = nullptr) : times(watcher) {}

  bool is_done = false;
  std::string status;
  std::ostringstream output;
  StepTimes times;
  logger::RecordingSink log;
};

void RunDriver(const std::string& volume, bool with_legacy_steps, const platform::SystemPaths& paths,
               platform::Platform& platform, RunRecord& record);

// Each line of the text, fit for a terminal.
void PrintIndented(const std::string& text, std::ostream& out);

void PrintLog(const std::vector<logger::RecordingSink::Line>& log, std::ostream& out);

}  // namespace ctl
