#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/commands.h"
#include "ctl/inspection.h"
#include "ctl/look_arguments.h"
#include "ctl/package_state.h"
#include "platform/host/host_platform.h"

namespace ctl {
namespace {

Findings InspectVersions(const VolumeSurvey& survey) {
  const updater::Version current = {package::kCurrentBranch, package::kCurrentVersion};
  Findings findings;
  for (const DatabaseSurvey& database : survey.databases) {
    if (!database.version || *database.version == current) continue;
    findings.push_back({Severity::kProblem, "not-upgraded", database.path,
                        "has version " + VersionText(database),
                        "updater-ctl report tells from the system log why the run did not upgrade it"});
  }
  return findings;
}

Findings InspectResult(const package::VolumePaths& paths, const platform::SystemPaths& system) {
  platform::host::HostPlatform host(system);
  const PackageState state = ReadPackageState(paths, system, host.platform().state_files);
  Findings findings = FindingsOf(state, paths);
  Append(InspectVersions(state.survey), findings);
  Append(InspectIntegrity(state.survey, Integrity::kFull), findings);
  Append(InspectLayouts(state.survey, package::kCurrentVersion), findings);
  Append(InspectViews(state.survey, paths.live), findings);
  Append(InspectVolumes(paths.live, package::kCurrentVersion, host.platform()), findings);
  return findings;
}

int Verify(const LookArguments& arguments, const Streams& streams) {
  std::string volume;
  std::string error;
  if (FindPackage(arguments.volume, volume, error) < 0) return TellReason(streams, error, kRefused);
  const Findings findings = InspectResult(package::VolumePaths(volume), SystemOf(arguments));
  const bool is_good = !HasProblem(findings);
  if (arguments.is_json) {
    Json json = NewDocument("verify");
    json["volume"] = volume;
    json["good"] = is_good;
    json["findings"] = ToJson(findings);
    PrintJson(json, streams.out);
  } else {
    streams.out << "Volume    " << Printable(volume) << "\n";
    if (!findings.empty()) streams.out << "Findings\n";
    PrintFindings(findings, streams);
    streams.out << (is_good ? "All databases are whole and at version "
                            : "Not all databases are whole and at version ")
                << package::kCurrentVersion << ".\n";
  }
  return is_good ? 0 : kFailed;
}

}  // namespace

Action DefineVerify(CLI::App& command, const Streams& streams) {
  const auto arguments = AddLookArguments(command);
  command.footer("Examples:\n  updater-ctl verify /volume1\n  updater-ctl verify /volume1 --json");
  return [arguments, streams] { return Verify(*arguments, streams); };
}

}  // namespace ctl
