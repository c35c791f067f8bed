#include <algorithm>
#include <array>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <utility>

#include "ctl/commands.h"
#include "ctl/inspection.h"
#include "ctl/look_arguments.h"
#include "ctl/output.h"
#include "ctl/package_state.h"
#include "ctl/place_inspection.h"
#include "ctl/version_graph.h"
#include "platform/host/host_platform.h"
#include "updater/framework/server_updater.h"
#include "updater/legacy/judgement.h"

namespace ctl {
namespace {

namespace legacy = updater::legacy;

struct Outlook {
  std::optional<updater::Version> version;  // of the data database
  std::vector<Edge> chain;
  Findings findings;
};

bool IsOld(const DatabaseSurvey& database) {
  return database.version && database.version->number < legacy::kLayoutVersion;
}

void InspectChain(const DatabaseSurvey& data, Outlook& outlook) {
  outlook.version = data.version;
  if (!data.version) return;  // told of as unreadable
  if (data.version->number > package::kCurrentVersion) {
    outlook.findings.push_back({Severity::kProblem, "newer", data.path,
                                "is newer than this program: a run would end in \"dbnewer\"",
                                "install the package that made it"});
    return;
  }
  std::string error;
  const updater::Version begin = IsOld(data) ? updater::Version{"", legacy::kLayoutVersion} : *data.version;
  std::optional<std::vector<Edge>> chain = ChainFrom(begin, error);
  if (chain) outlook.chain = *std::move(chain);
  if (!error.empty()) {
    outlook.findings.push_back(
        {Severity::kProblem, "no-chain", data.path,
         "no updater begins with version " + VersionText(data) + ": " + error,
         "see whether the database is the package's; updater-ctl plan shows the versions"});
  }
}

// The databases that the first-generation steps look at.
constexpr std::array<std::pair<const char*, legacy::Database>, 3> kOldKinds = {
    {{"data", legacy::Database::kData},
     {"user", legacy::Database::kUser},
     {"client", legacy::Database::kClient}}};

bool IsAnyLater(const VolumeSurvey& survey) {
  return std::ranges::any_of(kOldKinds, [&survey](const auto& kind) {
    const DatabaseSurvey* const database = FindShared(survey, kind.first);
    return database != nullptr && database->version && database->version->number > legacy::kLayoutVersion;
  });
}

// One without a version is not unreadable where a run takes it for an old one.
void CountAsOld(VolumeSurvey& survey) {
  if (FindShared(survey, "data") == nullptr || IsAnyLater(survey)) return;
  for (const auto& [name, kind] : kOldKinds) {
    const auto database =
        std::ranges::find_if(survey.databases, [wanted = std::string(name)](const DatabaseSurvey& one) {
          return one.kind == DatabaseSurvey::Kind::kShared && one.name == wanted;
        });
    if (database == survey.databases.end() || database->version) continue;
    const legacy::Judgement judgement = legacy::JudgeFile(database->path, kind, 0);
    if (!judgement.refusal.empty() || !judgement.IsBelow()) continue;
    database->version = updater::Version{"", static_cast<int>(judgement.version)};
    database->error.clear();
  }
}

// What runs of the first-generation steps would do to those below 2577. They leave the client database as it
// was.
void InspectOldDatabases(const VolumeSurvey& survey, Findings& findings) {
  if (IsAnyLater(survey)) return;  // told of as mixed
  legacy::Judgement data;
  for (const auto& [name, kind] : kOldKinds) {
    const DatabaseSurvey* const database = FindShared(survey, name);
    if (database == nullptr || !database->version) continue;
    const legacy::Judgement judgement = legacy::JudgeFile(database->path, kind, 0);
    if (kind == legacy::Database::kData) data = judgement;
    if (!IsOld(*database)) continue;
    const std::string what = database->version->number == 0
                                 ? "has no version, so it counts as older than 2577"
                                 : "is older than 2577";
    std::string reason = judgement.refusal;
    if (reason.empty() && kind == legacy::Database::kUser) reason = legacy::RefusalOfBoth(data, judgement);
    if (kind == legacy::Database::kClient) {
      findings.push_back({Severity::kProblem, "old-client", database->path,
                          what + ", and no run upgrades a client database as old as that",
                          "restore all databases of the package from one backup"});
    } else if (!reason.empty()) {
      findings.push_back({Severity::kProblem, "not-understood", database->path,
                          Join({what, " and would be refused also with --dont-skip: ", reason}),
                          "docs/legacy.md tells which older databases are upgraded"});
    } else {
      findings.push_back({Severity::kProblem, "needs-dont-skip", database->path,
                          what + ": only a run with --dont-skip upgrades it",
                          "start updater-svr with --dont-skip behind the volume"});
    }
  }
}

// The first-generation steps bring old ones to their layout, or refuse them, which is told above.
Findings InspectLaterLayouts(VolumeSurvey survey, int version) {
  std::erase_if(survey.databases, IsOld);
  return InspectLayouts(survey, version);
}

Outlook LookAhead(const package::VolumePaths& paths, const platform::SystemPaths& system,
                  const platform::Platform& platform, PackageState state, bool reads_all) {
  CountAsOld(state.survey);
  Outlook outlook = {.version = {}, .chain = {}, .findings = FindingsOf(state, paths)};
  Findings& findings = outlook.findings;
  Append(InspectStart(state.service, paths, system, platform), findings);
  const DatabaseSurvey* const data = FindShared(state.survey, "data");
  if (data == nullptr) return outlook;  // told of already
  InspectChain(*data, outlook);
  Append(InspectUse(state.survey, system), findings);
  Append(InspectSpace(paths), findings);
  if (reads_all) Append(InspectIntegrity(state.survey, Integrity::kQuick), findings);
  if (!data->version || data->version->number > package::kCurrentVersion) return outlook;
  const int version = std::max(data->version->number, legacy::kLayoutVersion);
  Append(InspectParts(state.survey, paths.live, version), findings);
  Append(InspectFolders(state.survey, paths, version, platform), findings);
  InspectOldDatabases(state.survey, findings);
  Append(InspectLaterLayouts(state.survey, version), findings);
  if (version >= updater::kSplitVersion) Append(InspectVolumes(paths.live, version, platform), findings);
  const DatabaseSurvey* const users = FindShared(state.survey, "user");
  if (users == nullptr || !users->version) return outlook;  // told of already, or by the mismatch
  Append(InspectUsers(paths.live, platform), findings);
  if (version >= updater::kSplitVersion) Append(InspectViews(state.survey, paths.live), findings);
  return outlook;
}

void PrintOutlook(const Outlook& outlook, const Streams& streams) {
  std::ostream& out = streams.out;
  out << "Version   " << Printable(TextOf(outlook.version)) << "\n"
      << "Upgrade   ";
  if (outlook.chain.empty()) out << (outlook.version ? "nothing to do" : "cannot be told");
  for (const Edge& edge : outlook.chain)
    out << (edge == outlook.chain.front() ? "" : " -> ") << edge.to.number;
  out << "\n";
  if (!outlook.findings.empty()) out << "Findings\n";
  PrintFindings(outlook.findings, streams);
  out << (HasProblem(outlook.findings) ? "An upgrade would fail, or lose something.\n"
                                       : "Nothing speaks against an upgrade.\n");
}

Json DocumentOf(const std::string& volume, const Outlook& outlook) {
  Json json = NewDocument("check");
  json["volume"] = volume;
  json["version"] = outlook.version ? ToJson(*outlook.version) : Json();
  json["chain"] = ToJson(outlook.chain);
  json["ready"] = !HasProblem(outlook.findings);
  json["findings"] = ToJson(outlook.findings);
  return json;
}

int Check(const LookArguments& arguments, bool reads_all, const Streams& streams) {
  std::string volume;
  std::string error;
  if (FindPackage(arguments.volume, volume, error) < 0) return TellReason(streams, error, kRefused);
  const package::VolumePaths paths(volume);
  const platform::SystemPaths system = SystemOf(arguments);
  platform::host::HostPlatform host(system);
  PackageState state = ReadPackageState(paths, system, host.platform().state_files);
  error = NoAccessTo(state.survey);
  if (!error.empty()) return TellReason(streams, error, kRefused);
  const Outlook outlook = LookAhead(paths, system, host.platform(), std::move(state), reads_all);
  if (arguments.is_json) {
    PrintJson(DocumentOf(volume, outlook), streams.out);
  } else {
    streams.out << "Volume    " << Printable(volume) << "\n";
    PrintOutlook(outlook, streams);
  }
  return HasProblem(outlook.findings) ? kFailed : 0;
}

}  // namespace

Action DefineCheck(Arguments& command, const Streams& streams) {
  const auto arguments = AddLookArguments(command);
  const auto is_short = std::make_shared<bool>(false);
  command.AddFlag("--no-pages", *is_short, "Leave out the look at every page of every database");
  command.SetFooter(
      "Examples:\n  updater-ctl check /volume1\n  updater-ctl check /volume1 --no-pages --json");
  return [arguments, is_short, streams] { return Check(*arguments, !*is_short, streams); };
}

}  // namespace ctl
