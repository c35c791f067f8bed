#include "ctl/driver_run.h"

#include <ostream>
#include <vector>

#include "ctl/output.h"
#include "updater/database_check.h"
#include "updater/run_updater.h"
#include "updater/service_status.h"

namespace ctl {

void RunDriver(const std::string& volume, bool with_legacy_steps, const platform::SystemPaths& paths,
               platform::Platform& platform, RunRecord& record) {
  updater::legacy::LegacySteps legacy;
  updater::DatabaseCheck check(paths, platform);
  std::vector<const char*> arguments = {volume.c_str()};
  if (with_legacy_steps) arguments.push_back("--dont-skip");
  const logger::ScopedSink sink(record.log);
  record.times.Begin();
  const int result = updater::RunUpdater(arguments, {.paths = paths,
                                                     .platform = platform,
                                                     .legacy = legacy,
                                                     .check = check,
                                                     .out = record.output,
                                                     .err = record.output,
                                                     .observer = &record.times});
  record.times.Finish();
  // Cannot fail here: only a status of a run that is still going on is checked, and no run ends with one.
  (void)updater::ServiceStatus(paths, platform.state_files).GetServiceStatus(record.status);
  record.is_done = result == 0 && record.status == updater::status::kDone;
}

void PrintIndented(const std::string& text, std::ostream& out) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) out << "  " << Printable(line) << "\n";
}

void PrintLog(const std::vector<logger::RecordingSink::Line>& log, std::ostream& out) {
  out << "\nSystem log\n";
  for (const logger::RecordingSink::Line& line : log) PrintIndented(line.text, out);
}

}  // namespace ctl
