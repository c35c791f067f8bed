#include "ctl/row_report.h"

#include <array>
#include <iomanip>
#include <map>
#include <optional>
#include <ostream>

#include "ctl/output.h"

namespace ctl {
namespace {

struct Change {
  std::optional<long long> before;  // nothing: there is no such table
  std::optional<long long> after;
};
using ChangeMember = std::optional<long long> Change::*;

// All databases of a kind taken together.
struct Group {
  std::map<std::string, Change> tables;
  Change total;
  int uncounted = 0;
};

// An upgrade moves rows between the databases of the last group.
constexpr const char* kContent = "content";
constexpr std::array kNames = {"data", "log", "user", "client", "views", "files", kContent};

std::vector<std::string> GroupsOf(const DatabaseSurvey& database) {
  switch (database.kind) {
    case DatabaseSurvey::Kind::kView:
      return {"views", kContent};
    case DatabaseSurvey::Kind::kFile:
      return {"files", kContent};
    case DatabaseSurvey::Kind::kShared:
      break;
  }
  if (database.name == "data") return {database.name, kContent};
  return {database.name};
}

void Add(std::optional<long long>& sum, long long rows) { sum = sum.value_or(0) + rows; }

void AddDatabase(const DatabaseSurvey& database, ChangeMember member, Group& group) {
  if (!database.error.empty()) ++group.uncounted;
  for (const DatabaseSurvey::TableRows& table : database.tables) {
    Add(group.tables[table.table].*member, table.rows);
    Add(group.total.*member, table.rows);
  }
}

void AddSurvey(const VolumeSurvey& survey, ChangeMember member, std::map<std::string, Group>& groups) {
  for (const DatabaseSurvey& database : survey.databases) {
    for (const std::string& name : GroupsOf(database)) AddDatabase(database, member, groups[name]);
  }
}

std::string Number(const std::optional<long long>& rows) { return rows ? std::to_string(*rows) : "-"; }

void PrintChange(const char* database, const std::string& table, const Change& change, std::ostream& out) {
  const long long difference = change.after.value_or(0) - change.before.value_or(0);
  out << "  " << std::left << std::setw(8) << database << std::setw(28) << Printable(table) << std::right
      << std::setw(11) << Number(change.before) << " -> " << std::left << std::setw(11)
      << Number(change.after) << std::right << std::setw(11)
      << (difference > 0 ? "+" : "") + std::to_string(difference) << "\n";
}

}  // namespace

void PrintRowChanges(const VolumeSurvey& before, const VolumeSurvey& after, std::ostream& out) {
  std::map<std::string, Group> groups;
  AddSurvey(before, &Change::before, groups);
  AddSurvey(after, &Change::after, groups);
  for (const char* name : kNames) {
    const auto found = groups.find(name);
    if (found == groups.end()) continue;
    for (const auto& [table, change] : found->second.tables) {
      if (change.before != change.after) PrintChange(name, table, change, out);
    }
    PrintChange(name, "all tables", found->second.total, out);
    if (found->second.uncounted > 0) out << "  " << name << ": not everything could be read and counted\n";
  }
}

}  // namespace ctl
