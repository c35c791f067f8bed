#include <filesystem>
#include <memory>
#include <ostream>
#include <sstream>

#include "ctl/commands.h"
#include "ctl/demo_platform.h"
#include "ctl/demo_state.h"
#include "ctl/run_report.h"
#include "logger/recording_sink.h"
#include "updater/database_check.h"
#include "updater/run_updater.h"
#include "updater/service_status.h"

namespace ctl {
namespace {

struct RunArguments {
  std::string folder;
  std::string state;
  bool with_legacy_steps = false;
  bool show_log = false;
};

// Everything one run leaves behind for the report.
struct RunRecord {
  std::string status;
  std::ostringstream output;
  StepTimes times;
  logger::RecordingSink log;
};

int RunDriver(const std::string& volume, const RunArguments& arguments, const platform::SystemPaths& paths,
              DemoPlatform& demo, RunRecord& record) {
  updater::legacy::NoLegacySteps legacy;
  updater::DatabaseCheck check(paths, demo.platform());
  std::vector<const char*> run_arguments = {volume.c_str()};
  if (arguments.with_legacy_steps) run_arguments.push_back("--dont-skip");
  const logger::ScopedSink sink(record.log);
  const int result = updater::RunUpdater(run_arguments, {.paths = paths,
                                                         .platform = demo.platform(),
                                                         .legacy = legacy,
                                                         .check = check,
                                                         .out = record.output,
                                                         .err = record.output,
                                                         .observer = &record.times});
  // Only a status that a living process has to back could be corrected, and none of those ends a run.
  (void)updater::ServiceStatus(paths, demo.platform().state_files).GetServiceStatus(record.status);
  return result;
}

void PrintIndented(const std::string& text, std::ostream& out) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) out << "  " << line << "\n";
}

void PrintLog(const logger::RecordingSink& log, std::ostream& out) {
  out << "\nSystem log\n";
  for (const logger::RecordingSink::Line& line : log.lines()) PrintIndented(line.text, out);
}

void PrintUsersAllowed(const DemoAppPrivilege& app_privilege, std::ostream& out) {
  if (app_privilege.allowed().empty()) return;
  out << "  allowed to use the application:";
  const char* separator = " ";
  for (const std::string& user : app_privilege.allowed()) {
    out << separator << user;
    separator = ", ";
  }
  out << "\n";
}

int RunVolume(const RunArguments& arguments, const Streams& streams) {
  const std::string volume = std::filesystem::absolute(arguments.folder).string();
  const updater::RunPaths run_paths(volume);
  const platform::SystemPaths paths =
      platform::SystemPaths::Under(arguments.state.empty() ? DefaultStateFolder(volume) : arguments.state);
  DemoPlatform demo(volume, run_paths.user_db);
  std::string error;
  if (!std::filesystem::is_directory(volume)) error = volume + " is not a folder";
  if (!error.empty() || PrepareState(paths, demo.platform().state_files, error) < 0) {
    streams.err << "updater-ctl: " << error << "\n";
    return 1;
  }

  const VolumeSurvey before = SurveyVolume(run_paths);
  streams.out << "Before\n";
  PrintSurvey(before, streams.out);

  RunRecord record;
  const int result = RunDriver(volume, arguments, paths, demo, record);
  const bool is_done = result == 0 && record.status == updater::status::kDone;

  const VolumeSurvey after = SurveyVolume(run_paths);
  streams.out << "\nStandard output of the run\n";
  PrintIndented(record.output.str(), streams.out);
  streams.out << "\nThe chain that ran\n";
  PrintChain(record.times, streams.out);
  streams.out << "\nNew view and file databases\n";
  PrintMadeDatabases(before, after, streams.out);
  streams.out << "\nUsers\n";
  PrintUsersAllowed(demo.app_privilege(), streams.out);
  PrintRemovedUsers(before, after, streams.out);
  streams.out << "\nAfter\n";
  PrintSurvey(after, streams.out);
  if (arguments.show_log || !is_done) PrintLog(record.log, streams.out);
  streams.out << "\nStatus: " << record.status << "\n";
  return is_done ? 0 : 1;
}

}  // namespace

Action DefineRun(CLI::App& command, const Streams& streams) {
  const auto arguments = std::make_shared<RunArguments>();
  command.add_option("folder", arguments->folder, "The volume: a folder that holds @stratofolder")
      ->required();
  command.add_option("--state", arguments->state,
                     "Where the package's state files are kept (default: @updater-ctl in the volume)");
  command.add_flag("--dont-skip", arguments->with_legacy_steps,
                   "Run the first-generation steps too, as updater-svr does with this option");
  command.add_flag("--log", arguments->show_log,
                   "Show the system log of the run, which a failed run always shows");
  return [arguments, streams] { return RunVolume(*arguments, streams); };
}

}  // namespace ctl
