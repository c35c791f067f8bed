#include "ctl/rehearsal_report.h"

#include <algorithm>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/row_report.h"
#include "ctl/run_json.h"
#include "ctl/version_graph.h"

namespace ctl {
namespace {

using Kind = DatabaseSurvey::Kind;

constexpr std::size_t kNamesShown = 3;  // of users

const DatabaseSurvey* Find(const VolumeSurvey& survey, const DatabaseSurvey& database) {
  const auto found =
      std::find_if(survey.databases.begin(), survey.databases.end(), [&](const DatabaseSurvey& other) {
        return other.kind == database.kind && other.name == database.name;
      });
  return found == survey.databases.end() ? nullptr : &*found;
}

void PrintChange(const std::string& label, const std::string& from, const std::string& to, long long before,
                 long long after, std::ostream& out) {
  out << "  " << std::left << std::setw(15) << label << std::setw(15) << from << "-> " << std::setw(15) << to
      << std::right << std::setw(10) << (before < 0 ? "-" : Bytes(before)) << " -> " << std::setw(10)
      << (after < 0 ? "-" : Bytes(after)) << "\n";
}

void PrintShared(const Rehearsal& rehearsal, std::ostream& out) {
  for (const DatabaseSurvey& old : rehearsal.before.databases) {
    if (old.kind != Kind::kShared) continue;
    const DatabaseSurvey* const now = Find(rehearsal.after, old);
    PrintChange(old.name, Printable(VersionText(old)), now != nullptr ? Printable(VersionText(*now)) : "gone",
                old.bytes, now != nullptr ? now->bytes : -1, out);
  }
}

struct Sum {
  std::size_t databases = 0;
  long long bytes = 0;
};

Sum SumOf(const VolumeSurvey& survey, Kind kind) {
  Sum sum;
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.kind != kind) continue;
    ++sum.databases;
    sum.bytes += database.bytes;
  }
  return sum;
}

void PrintSums(const Rehearsal& rehearsal, Kind kind, const char* label, std::ostream& out) {
  const Sum before = SumOf(rehearsal.before, kind);
  const Sum after = SumOf(rehearsal.after, kind);
  if (before.databases + after.databases == 0) return;
  PrintChange(label, std::to_string(before.databases), std::to_string(after.databases), before.bytes,
              after.bytes, out);
}

void PrintTime(const std::string& name, double milliseconds, std::ostream& out) {
  out << "  " << std::left << std::setw(34) << name << std::right << std::setw(11) << std::fixed
      << std::setprecision(1) << milliseconds << " ms\n";
}

void PrintTimes(const Rehearsal& rehearsal, std::ostream& out) {
  for (const StepTimes::PhaseTime& phase : rehearsal.run.times.phases()) {
    PrintTime(NameOf(phase.phase), phase.milliseconds, out);
    if (phase.phase == updater::Phase::kUpdaters) PrintChain(rehearsal.run.times, out);
  }
  PrintTime("all", rehearsal.run.times.total(), out);
}

}  // namespace

void PrintRehearsal(const RehearsalPlace& place, const Rehearsal& rehearsal, const std::string& folder,
                    const Streams& streams) {
  std::ostream& out = streams.out;
  const Room& room = place.room;
  out << "Volume    " << Printable(place.volume) << "\n"
      << "Copies    " << Bytes(static_cast<long long>(room.space.databases))
      << (room.shares_blocks ? ", sharing blocks, " : ", ")
      << (folder.empty() ? "removed again" : Printable(folder)) << "\n"
      << "Room      " << Bytes(static_cast<long long>(room.space.needed)) << " for the upgrade, "
      << Bytes(static_cast<long long>(room.space.free)) << " were free\n"
      << "Time\n";
  PrintTimes(rehearsal, out);
  out << "Databases                     number or version                     bytes\n";
  PrintShared(rehearsal, out);
  PrintSums(rehearsal, Kind::kView, "views", out);
  PrintSums(rehearsal, Kind::kFile, "file databases", out);
  out << "Rows that come or go (content: data, views and files)\n";
  PrintRowChanges(rehearsal.before, rehearsal.after, out);
  out << "Users\n";
  const std::vector<std::string> allowed(rehearsal.allowed.begin(), rehearsal.allowed.end());
  out << "  allowed   " << List(allowed, kNamesShown) << "\n  removed   "
      << List(RemovedUsers(rehearsal.before, rehearsal.after), kNamesShown) << "\n";
  if (!rehearsal.findings.empty()) out << "Findings\n";
  PrintFindings(rehearsal.findings, streams);
  if (!rehearsal.run.is_done) PrintLog(rehearsal.log, out);
  out << "Result    the upgrade would end in \"" << rehearsal.run.status << "\"\n";
}

Json ToJson(const RehearsalPlace& place, const Rehearsal& rehearsal, const std::string& folder) {
  Json json = NewDocument("rehearse");
  json["volume"] = place.volume;
  json["started"] = rehearsal.started;
  json["copies"] = {{"folder", folder.empty() ? Json() : Json(folder)},
                    {"milliseconds", rehearsal.copy_milliseconds},
                    {"share_blocks", place.room.shares_blocks}};
  json["room"] = {{"databases", place.room.space.databases},
                  {"upgrade", place.room.space.needed},
                  {"free", place.room.space.free}};
  json["findings"] = ctl::ToJson(rehearsal.findings);
  AddRun(rehearsal.before, rehearsal.after, rehearsal.run, rehearsal.log, rehearsal.allowed, json);
  return json;
}

}  // namespace ctl
