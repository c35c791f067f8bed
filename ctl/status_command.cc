#include <iomanip>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/commands.h"
#include "ctl/look_arguments.h"
#include "ctl/package_state.h"
#include "ctl/survey_json.h"
#include "platform/host/host_state_files.h"

namespace ctl {
namespace {

using Kind = DatabaseSurvey::Kind;

std::string ServiceText(const ServiceState& service) {
  if (service.stored.empty() || service.stored == service.status) return service.status;
  return service.status + " (stored: \"" + service.stored + "\")";
}

std::string MarkText(const ServiceState& service) {
  if (!service.marked_by) return "none";
  return "process " + std::to_string(*service.marked_by) + (service.is_marker_alive ? "" : ", which is gone");
}

std::string CommitText(const std::optional<PendingCommit>& commit) {
  if (!commit) return "none";
  if (commit->state == PendingCommit::State::kDamaged) return "damaged";
  if (commit->state == PendingCommit::State::kUnreadable) return "cannot be read";
  return std::to_string(commit->placed) + " of " + Count(commit->parts, "part") + " in place";
}

void PrintDatabase(const DatabaseSurvey& database, std::ostream& out) {
  out << "  " << std::left << std::setw(15) << Printable(Label(database)) << std::setw(16)
      << VersionText(database) << std::right << std::setw(10) << Bytes(database.bytes);
  for (const auto& [suffix, bytes] : database.companions) out << "  " << suffix << " " << Bytes(bytes);
  if (database.user) out << "  in use";
  out << "\n";
}

// Of many databases of a kind what they have in common.
void PrintGroups(const VolumeSurvey& survey, Kind kind, const char* name, std::ostream& out) {
  struct Group {
    std::size_t databases = 0;
    long long bytes = 0;
  };
  std::map<std::string, Group> groups;
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.kind != kind) continue;
    Group& group = groups[VersionText(database)];
    ++group.databases;
    group.bytes += database.bytes;
  }
  for (const auto& [version, group] : groups) {
    out << "  " << std::left << std::setw(15) << Count(group.databases, name) << std::setw(16) << version
        << std::right << std::setw(10) << Bytes(group.bytes) << "\n";
  }
}

void PrintStatus(const PackageState& state, bool lists_all, std::ostream& out) {
  constexpr std::size_t kMostListed = 8;
  out << "Service   " << Printable(ServiceText(state.service)) << "\n"
      << "Mark      " << MarkText(state.service) << "\n"
      << "Commit    " << CommitText(state.commit) << "\n"
      << "Databases\n";
  for (const auto& [kind, name] :
       {std::pair(Kind::kShared, ""), {Kind::kView, "view"}, {Kind::kFile, "file database"}}) {
    const auto is_of_kind = [kind = kind](const DatabaseSurvey& database) { return database.kind == kind; };
    const auto& all = state.survey.databases;
    const auto count = static_cast<std::size_t>(std::count_if(all.begin(), all.end(), is_of_kind));
    if (!lists_all && kind != Kind::kShared && count > kMostListed) {
      PrintGroups(state.survey, kind, name, out);
      continue;
    }
    for (const DatabaseSurvey& database : all) {
      if (is_of_kind(database)) PrintDatabase(database, out);
    }
  }
  if (state.survey.databases.empty()) out << "  none\n";
  if (!state.copies.empty()) out << "Working copies\n";
  for (const std::string& copy : state.copies) out << "  " << Printable(copy) << "\n";
}

Json DatabaseJson(const DatabaseSurvey& database) {
  Json companions = Json::object();
  for (const auto& [suffix, bytes] : database.companions) companions[suffix] = bytes;
  Json json = {{"kind", KindName(database)}, {"name", database.name},    {"path", database.path},
               {"branch", nullptr},          {"version", nullptr},       {"error", nullptr},
               {"bytes", database.bytes},    {"companions", companions}, {"in_use_by", nullptr}};
  if (database.version) {
    json["branch"] = database.version->branch;
    json["version"] = database.version->number;
  }
  if (!database.error.empty()) json["error"] = database.error;
  if (database.user) json["in_use_by"] = *database.user;
  return json;
}

Json CommitJson(const PendingCommit& commit) {
  using State = PendingCommit::State;
  const char* const state = commit.state == State::kValid     ? "pending"
                            : commit.state == State::kDamaged ? "damaged"
                                                              : "unreadable";
  return {{"state", state}, {"parts", commit.parts}, {"placed", commit.placed}, {"changed", commit.changed}};
}

Json DocumentOf(const std::string& volume, const PackageState& state, const Findings& findings) {
  Json json = NewDocument("status");
  json["volume"] = volume;
  const ServiceState& service = state.service;
  json["service"] = {{"status", service.status}, {"stored", service.stored}, {"enabled", service.is_enabled}};
  json["mark"] = nullptr;
  if (service.marked_by) json["mark"] = {{"process", *service.marked_by}, {"alive", service.is_marker_alive}};
  json["commit"] = state.commit ? CommitJson(*state.commit) : Json();
  json["databases"] = Json::array();
  for (const DatabaseSurvey& database : state.survey.databases)
    json["databases"].push_back(DatabaseJson(database));
  json["copies"] = state.copies;
  json["findings"] = ToJson(findings);
  return json;
}

int ShowStatus(const LookArguments& arguments, bool lists_all, const Streams& streams) {
  std::string volume;
  std::string error;
  if (FindPackage(arguments.volume, volume, error) < 0) return TellReason(streams, error, kRefused);
  const package::VolumePaths paths(volume);
  platform::host::HostStateFiles state_files;
  const PackageState state = ReadPackageState(paths, SystemOf(arguments), state_files);
  if (const std::string reason = NoAccessTo(state.survey); !reason.empty())
    return TellReason(streams, reason, kRefused);
  const Findings findings = FindingsOf(state, paths);
  if (arguments.is_json) {
    PrintJson(DocumentOf(volume, state, findings), streams.out);
  } else {
    streams.out << "Volume    " << Printable(volume) << "\n";
    PrintStatus(state, lists_all, streams.out);
    if (!findings.empty()) streams.out << "Findings\n";
    PrintFindings(findings, streams);
  }
  return HasProblem(findings) ? kFailed : 0;
}

}  // namespace

Action DefineStatus(Arguments& command, const Streams& streams) {
  const auto arguments = AddLookArguments(command);
  const auto lists_all = std::make_shared<bool>(false);
  command.AddFlag("--all", *lists_all, "A line for every view and file database, however many there are");
  command.SetFooter("Examples:\n  updater-ctl status /volume1\n  updater-ctl status /volume1 --json");
  return [arguments, lists_all, streams] { return ShowStatus(*arguments, *lists_all, streams); };
}

}  // namespace ctl
