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

Action DefineSample(CLI::App& command, const Streams& streams) {
  const auto arguments = std::make_shared<SampleArguments>();
  const CLI::Range count(1, kLargestSize);
  command.add_option("folder", arguments->folder, "Where the volume is made")->required();
  command.add_option("--from", arguments->version, "The version of its databases")
      ->check(CLI::TypeValidator<int>(""))  // the next check gives no reason when the text is no number
      ->check(CLI::IsMember(SampleVersions()))
      ->capture_default_str();
  command.add_option("--nodes", arguments->size.nodes, "Files and folders in all views")
      ->check(count)
      ->capture_default_str();
  command.add_option("--versions", arguments->size.versions, "Versions of these files")
      ->check(CLI::Range(kLargestSize))
      ->capture_default_str();
  command.add_option("--views", arguments->size.views, "Views, each with a user of its own")
      ->check(count)
      ->capture_default_str();
  command.add_option("--seed", arguments->size.seed, "Another number gives other names, sizes and versions")
      ->check(CLI::Range(std::numeric_limits<int>::max()))
      ->capture_default_str();
  AddJsonFlag(command, arguments->is_json);
  command.footer(
      "Examples:\n  updater-ctl sample /tmp/try --from 3300\n"
      "  updater-ctl sample /tmp/large --nodes 1000000 --views 50 --seed 7");
  return [arguments, streams] { return MakeSample(*arguments, streams); };
}

}  // namespace ctl
