#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <set>

#include "ctl/commands.h"
#include "ctl/demo_platform.h"
#include "ctl/demo_state.h"
#include "ctl/driver_run.h"
#include "ctl/finding.h"
#include "ctl/look_arguments.h"
#include "ctl/made_folders.h"
#include "ctl/output.h"
#include "ctl/quiet_package.h"
#include "ctl/row_report.h"
#include "ctl/run_json.h"
#include "ctl/run_report.h"
#include "ctl/volume_folder.h"
#include "platform/host/host_state_files.h"

namespace ctl {
namespace {

struct RunArguments {
  std::string folder;
  std::optional<std::string> state;
  bool with_legacy_steps = false;
  bool show_log = false;
  bool is_json = false;
};

void PrintUsersAllowed(const std::set<std::string>& allowed, std::ostream& out) {
  if (allowed.empty()) return;
  std::string names;
  for (const std::string& user : allowed) names += (names.empty() ? " " : ", ") + Printable(user);
  out << "  ";
  PrintWrapped(2, "    ", "allowed to use the application:" + names, out);
}

// What a run works on. Nobody else works on it, or keeps a run's state in its state folder, while this lives.
struct RunPlace {
  std::string volume;
  platform::SystemPaths paths;
  base::FileDescriptor volume_lock;
  base::FileDescriptor state_lock;  // closed where that folder is the volume
};

// Returns 0, or -1 with the reason in `error`; nothing that was not there before is left then.
int TakePlace(const RunArguments& arguments, RunPlace& place, std::string& error) {
  if (FindVolume(arguments.folder, place.volume, error) < 0) return -1;
  const std::string argument = arguments.state ? *arguments.state : DefaultStateFolder(place.volume);
  std::string state;
  MadeFolders made;
  platform::host::HostStateFiles state_files;
  if (FindStateFolder(argument, place.volume, state, error) < 0) return -1;
  place.paths = platform::SystemPaths::Under(state);
  // Of a locked database nothing would be known, and all its users would count as gone.
  if (IsInUse(package::VolumePaths(place.volume).live.user, error)) return -1;
  if (LockFolder(place.volume, place.volume_lock, error) < 0 ||
      (state != place.volume && made.MakeLocked(state, place.state_lock, error) < 0) ||
      PrepareState(place.paths, state_files, made, error) < 0) {
    return -1;
  }
  made.Keep();
  return 0;
}

void PrintRun(const VolumeSurvey& before, const VolumeSurvey& after, const RunRecord& record,
              const std::set<std::string>& allowed, std::ostream& out) {
  out << "\nBefore\n";
  PrintSurvey(before, out);
  out << "\nStandard output of the run\n";
  PrintIndented(record.output.str(), out);
  out << "\nThe chain that ran\n";
  PrintChain(record.times, out);
  out << "\nNew view and file databases\n";
  PrintMadeDatabases(before, after, out);
  out << "\nUsers\n";
  PrintUsersAllowed(allowed, out);
  PrintRemovedUsers(before, after, out);
  out << "\nAfter\n";
  PrintSurvey(after, out);
  out << "\nRows that come or go (content: data, views and files)\n";
  PrintRowChanges(before, after, out);
}

int RunVolume(const RunArguments& arguments, const Streams& streams) {
  RunPlace place;
  std::string error;
  if (TakePlace(arguments, place, error) < 0) return TellReason(streams, error, kRefused);
  const package::PackagePaths live = package::VolumePaths(place.volume).live;
  const VolumeIdentity own = ReadIdentity(place.volume);
  const RecordedVolumes recorded = ReadRecordedVolumes(live.data);
  DemoPlatform demo(live.user, own, recorded);

  const VolumeSurvey before = SurveyVolume(live, SurveyDepth::kRows);
  RunRecord record;
  RunDriver(place.volume, arguments.with_legacy_steps, place.paths, demo.platform(), record);
  const VolumeSurvey after = SurveyVolume(live, SurveyDepth::kRows);
  if (arguments.is_json) {
    Json json = NewDocument("run");
    json["volume"] = place.volume;
    AddRun(before, after, record, record.log.lines(), demo.allowed(), json);
    PrintJson(json, streams.out);
  } else {
    streams.out << "Volumes\n";
    PrintVolumes(own, recorded, streams.out);
    PrintRun(before, after, record, demo.allowed(), streams.out);
    if (arguments.show_log || !record.is_done) PrintLog(record.log.lines(), streams.out);
    streams.out << "\nStatus: " << record.status << "\n";
  }
  return record.is_done ? 0 : kFailed;
}

}  // namespace

Action DefineRun(Arguments& command, const Streams& streams) {
  const auto arguments = std::make_shared<RunArguments>();
  command.AddPath("folder", arguments->folder, "The volume: a folder that holds @stratofolder").Require();
  command.AddPath("--state", arguments->state,
                  "Where the package's state files are kept (default: @updater-ctl in the volume)");
  command.AddFlag("--dont-skip", arguments->with_legacy_steps,
                  "Run the first-generation steps too, as updater-svr does with this option");
  command.AddFlag("--log", arguments->show_log,
                  "Show the system log of the run, which a failed run always shows");
  command.AddJsonFlag(arguments->is_json);
  command.SetFooter(
      "Examples:\n  updater-ctl sample /tmp/try --from 3300\n  updater-ctl run /tmp/try\n"
      "  updater-ctl run /tmp/copy-of-volume1 --log");
  return [arguments, streams] { return RunVolume(*arguments, streams); };
}

}  // namespace ctl
