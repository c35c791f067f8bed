#include <filesystem>
#include <memory>
#include <ostream>

#include "ctl/commands.h"
#include "ctl/demo_platform.h"
#include "ctl/demo_state.h"
#include "ctl/sample_volume.h"
#include "ctl/volume_survey.h"

namespace ctl {
namespace {

struct SampleArguments {
  std::string folder;
  int version = 2577;
  SampleSize size;
};

int LiftTo(int version, const std::string& volume, std::string& error) {
  DemoPlatform demo(volume, updater::RunPaths(volume).user_db);
  const platform::SystemPaths paths = platform::SystemPaths::Under(DefaultStateFolder(volume));
  if (PrepareState(paths, demo.platform().state_files, error) < 0) return -1;
  std::ostream silent(nullptr);  // how the sample came about is nobody's concern
  return LiftSampleVolume(volume, version, {paths.scratch_database, silent, demo.platform()}, error);
}

int MakeSample(const SampleArguments& arguments, const Streams& streams) {
  const std::string volume = std::filesystem::absolute(arguments.folder).string();
  std::string error;
  if (MakeSampleVolume(volume, arguments.size, error) < 0 || LiftTo(arguments.version, volume, error) < 0) {
    streams.err << "updater-ctl: " << error << "\n";
    return 1;
  }
  streams.out << "Sample volume " << volume << "\n";
  PrintSurvey(SurveyVolume(updater::RunPaths(volume)), streams.out);
  return 0;
}

}  // namespace

Action DefineSample(CLI::App& command, const Streams& streams) {
  const auto arguments = std::make_shared<SampleArguments>();
  command.add_option("folder", arguments->folder, "Where the volume is made")->required();
  command.add_option("--version", arguments->version, "The version of its databases")->capture_default_str();
  command.add_option("--nodes", arguments->size.nodes, "Files and folders in all views")
      ->capture_default_str();
  command.add_option("--versions", arguments->size.versions, "Versions of these files")
      ->capture_default_str();
  command.add_option("--views", arguments->size.views, "Views, each with a user of its own")
      ->capture_default_str();
  return [arguments, streams] { return MakeSample(*arguments, streams); };
}

}  // namespace ctl
