#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "ctl/commands.h"
#include "ctl/inspection.h"
#include "ctl/look_arguments.h"
#include "ctl/package_state.h"
#include "ctl/place_inspection.h"
#include "ctl/rehearsed_rows.h"
#include "platform/host/host_platform.h"

namespace ctl {
namespace {

bool IsUpgraded(const VolumeSurvey& survey, const char* name) {
  const DatabaseSurvey* const database = FindShared(survey, name);
  return database != nullptr && IsCurrent(*database);
}

Findings InspectResult(const package::VolumePaths& paths, const PackageState& state,
                       const platform::Platform& platform) {
  Findings findings = FindingsOf(state, paths);
  Append(InspectUpgraded(state.survey), findings);
  Append(InspectParts(state.survey, paths.live, package::kCurrentVersion), findings);
  Append(InspectIntegrity(state.survey, Integrity::kFull), findings);
  if (IsUpgraded(state.survey, "user")) Append(InspectViews(state.survey, paths.live), findings);
  if (IsUpgraded(state.survey, "data")) {
    Append(InspectNeededFolders(paths.live, package::kCurrentVersion), findings);
    Append(InspectVolumes(paths.live, package::kCurrentVersion, platform), findings);
  }
  return findings;
}

struct VerifyArguments {
  std::shared_ptr<LookArguments> look;
  std::string rehearsal;
};

int Verify(const VerifyArguments& arguments, const Streams& streams) {
  std::string volume;
  std::string error;
  Json rehearsal;
  const bool compares = !arguments.rehearsal.empty();
  if (FindPackage(arguments.look->volume, volume, error) < 0 ||
      (compares && ReadRehearsal(arguments.rehearsal, rehearsal, error) < 0)) {
    return TellReason(streams, error, kRefused);
  }
  const package::VolumePaths paths(volume);
  const platform::SystemPaths system = SystemOf(*arguments.look);
  platform::host::HostPlatform host(system);
  const PackageState state = ReadPackageState(paths, system, host.platform().state_files);
  error = NoAccessTo(state.survey);
  if (!error.empty()) return TellReason(streams, error, kRefused);
  Findings findings = InspectResult(paths, state, host.platform());
  if (compares)
    Append(CompareRows(rehearsal, volume, SurveyVolume(paths.live, SurveyDepth::kRows)), findings);
  const bool is_good = !HasProblem(findings);
  if (arguments.look->is_json) {
    Json json = NewDocument("verify");
    json["volume"] = volume;
    json["rehearsal"] = compares ? rehearsal.at("started") : Json();
    json["good"] = is_good;
    json["findings"] = ToJson(findings);
    PrintJson(json, streams.out);
  } else {
    streams.out << "Volume    " << Printable(volume) << "\n";
    if (compares)
      streams.out << "Rehearsed " << Printable(rehearsal.at("started").get<std::string>()) << "\n";
    if (!findings.empty()) streams.out << "Findings\n";
    PrintFindings(findings, streams);
    streams.out << (is_good ? "All databases are whole and at version "
                            : "Not all databases are whole and at version ")
                << package::kCurrentVersion
                << (compares ? ",\nwith the rows that the rehearsal told of.\n" : ".\n");
  }
  return is_good ? 0 : kFailed;
}

}  // namespace

Action DefineVerify(Arguments& command, const Streams& streams) {
  const auto arguments = std::make_shared<VerifyArguments>();
  arguments->look = AddLookArguments(command);
  command.AddPath("--rehearsal", arguments->rehearsal,
                  "Compare the rows with this report, which updater-ctl rehearse --json has written");
  command.SetFooter(
      "Examples:\n  updater-ctl verify /volume1\n  updater-ctl verify /volume1 --json\n"
      "  updater-ctl verify /volume1 --rehearsal rehearsal.json");
  return [arguments, streams] { return Verify(*arguments, streams); };
}

}  // namespace ctl
