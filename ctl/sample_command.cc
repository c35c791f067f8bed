#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/commands.h"
#include "ctl/demo_platform.h"
#include "ctl/demo_state.h"
#include "ctl/look_arguments.h"
#include "ctl/output.h"
#include "ctl/sample_volume.h"
#include "ctl/survey_json.h"
#include "ctl/volume_folder.h"
#include "ctl/volume_survey.h"

namespace ctl {
namespace {

constexpr int kLargestSize = 100000000;  // far below where the numbers of nodes and versions overflow

struct SampleArguments {
  std::string folder;
  int version = 2577;
  SampleSize size;
  bool is_json = false;
};

int LiftTo(int version, const std::string& volume, MadeFolders& made, std::string& error) {
  DemoPlatform demo(package::VolumePaths(volume).live.user, MadeUpIdentity(), {});
  const platform::SystemPaths paths = platform::SystemPaths::Under(DefaultStateFolder(volume));
  if (PrepareState(paths, demo.platform().state_files, made, error) < 0) return -1;
  std::ostream silent(nullptr);  // the updaters' own output would not help who wants a sample
  return LiftSampleVolume(volume, version, {paths.scratch_database, silent, demo.platform()}, error);
}

int MakeSample(const SampleArguments& arguments, const Streams& streams) {
  base::FileDescriptor lock;  // until everything that is taken back is gone
  MadeFolders made;
  std::string volume;
  std::string error;
  if (AbsolutePath(arguments.folder, volume, error) < 0) return TellReason(streams, error, kRefused);
  if (made.MakeLocked(volume, lock, error) < 0 || MakeSampleVolume(volume, arguments.size, made, error) < 0 ||
      LiftTo(arguments.version, volume, made, error) < 0) {
    return TellReason(streams, error, kFailed);
  }
  made.Keep();
  const VolumeSurvey made_volume = SurveyVolume(package::VolumePaths(volume).live, SurveyDepth::kRows);
  if (arguments.is_json) {
    Json json = NewDocument("sample");
    json["volume"] = volume;
    json["databases"] = ContentsOf(made_volume);
    PrintJson(json, streams.out);
    return 0;
  }
  streams.out << "Sample volume " << Printable(volume) << "\n";
  PrintSurvey(made_volume, streams.out);
  return 0;
}

}  // namespace

Action DefineSample(Arguments& command, const Streams& streams) {
  const auto arguments = std::make_shared<SampleArguments>();
  SampleSize& size = arguments->size;
  command.AddPath("folder", arguments->folder, "Where the volume is made").Require();
  command.AddChoice("--from", arguments->version, SampleVersions(), "The version of its databases")
      .ShowDefault();
  command.AddNumber("--nodes", size.nodes, 1, kLargestSize, "Files and folders in all views").ShowDefault();
  command.AddNumber("--versions", size.versions, 0, kLargestSize, "Versions of these files").ShowDefault();
  command.AddNumber("--views", size.views, 1, kLargestSize, "Views, each with a user of its own")
      .ShowDefault();
  command
      .AddNumber("--seed", size.seed, 0, std::numeric_limits<int>::max(),
                 "Another number gives other names, sizes and versions")
      .ShowDefault();
  command.AddJsonFlag(arguments->is_json);
  command.SetFooter(
      "Examples:\n  updater-ctl sample /tmp/try --from 3300\n"
      "  updater-ctl sample /tmp/large --nodes 1000000 --views 50 --seed 7");
  return [arguments, streams] { return MakeSample(*arguments, streams); };
}

}  // namespace ctl
