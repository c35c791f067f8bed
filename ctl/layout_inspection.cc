#include "ctl/golden_layout.h"
#include "ctl/grouped_findings.h"
#include "ctl/inspection.h"
#include "db-util/look.h"

namespace ctl {
namespace {

using Columns = std::map<std::string, std::string>;

constexpr const char* kOtherLayout =
    "the database has not the layout of its version, or was restored in part";

void CompareColumns(const std::string& table, const Columns& expected, const Columns& found,
                    const DatabaseSurvey& database, Grouped& findings) {
  for (const auto& [name, type] : expected) {
    const auto column = found.find(name);
    if (column == found.end()) {
      findings.Add(Severity::kProblem, "missing-column", Join({"column ", table, ".", name, " is missing"}),
                   kOtherLayout, database);
    } else if (column->second != type) {
      findings.Add(
          Severity::kWarning, "other-type",
          Join({"column ", table, ".", name, " is declared as '", column->second, "', not '", type, "'"}),
          "values may compare in another way than the package expects", database);
    }
  }
  for (const auto& [name, type] : found) {
    if (expected.contains(name)) continue;
    findings.Add(Severity::kWarning, "strange-column",
                 Join({"column ", table, ".", name, " is not the package's"}),
                 "an upgrade may drop it: save what is in it", database);
  }
}

void CompareTables(const Layout& expected, const Layout& found, const DatabaseSurvey& database,
                   Grouped& findings) {
  for (const auto& [table, columns] : expected.tables) {
    const auto there = found.tables.find(table);
    if (there == found.tables.end()) {
      findings.Add(Severity::kProblem, "missing-table", Join({"table ", table, " is missing"}), kOtherLayout,
                   database);
      continue;
    }
    CompareColumns(table, columns, there->second, database, findings);
  }
  for (const auto& [table, columns] : found.tables) {
    if (expected.tables.contains(table)) continue;
    findings.Add(Severity::kWarning, "strange-table", Join({"table ", table, " is not the package's"}),
                 "an upgrade may drop it: see who made it, and save what is in it", database);
  }
}

void CompareOthers(const Layout& expected, const Layout& found, const DatabaseSurvey& database,
                   Grouped& findings) {
  for (const auto& [index, columns] : expected.indexes) {
    const auto there = found.indexes.find(index);
    if (there != found.indexes.end() && there->second == columns) continue;
    findings.Add(Severity::kWarning, "missing-index", Join({"index ", index, " on ", columns, " is missing"}),
                 "the package is slower without it", database);
  }
  for (const auto& [trigger, text] : expected.triggers) {
    const auto there = found.triggers.find(trigger);
    if (there != found.triggers.end() && there->second == text) continue;
    findings.Add(Severity::kProblem, "other-trigger",
                 Join({"trigger ", trigger, " is missing or another one"}),
                 "files of deleted versions would never be removed", database);
  }
  for (const auto& [trigger, text] : found.triggers) {
    if (expected.triggers.contains(trigger)) continue;
    findings.Add(Severity::kWarning, "strange-trigger", Join({"trigger ", trigger, " is not the package's"}),
                 "see who made it, then remove it: an upgrade may fail at it", database);
  }
  for (const std::string& view : found.views) {
    findings.Add(Severity::kWarning, "strange-view", Join({"SQL view ", view, " is not the package's"}),
                 "see who made it, then remove it: an upgrade may fail at it", database);
  }
}

void InspectLayout(const DatabaseSurvey& database, int version, Grouped& findings) {
  const Layout* const expected = GoldenLayout(database.kind, database.name, version);
  if (expected == nullptr) {
    findings.Add(Severity::kWarning, "strange-database", "is no part of the package at this version",
                 "see README on folders that must not be there at the start", database);
    return;
  }
  db_util::Database db;
  Layout found;
  db_util::Status status = db_util::OpenToLook(database.path, db);
  if (status.ok()) status = ReadLayout(db.get(), found);
  if (!status.ok()) {
    findings.Add(Severity::kProblem, "unreadable-schema", status.message, "restore it from a backup",
                 database);
    return;
  }
  CompareTables(*expected, found, database, findings);
  CompareOthers(*expected, found, database, findings);
}

}  // namespace

Findings InspectLayouts(const VolumeSurvey& survey, int version) {
  Grouped findings;
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.version) InspectLayout(database, version, findings);  // the others are told of as unreadable
  }
  return findings.Get();
}

bool IsCurrent(const DatabaseSurvey& database) {
  return database.version == updater::Version{package::kCurrentBranch, package::kCurrentVersion};
}

Findings InspectUpgraded(const VolumeSurvey& survey) {
  Findings findings;
  Grouped layouts;
  for (const DatabaseSurvey& database : survey.databases) {
    if (!database.version) continue;
    if (IsCurrent(database)) {
      InspectLayout(database, package::kCurrentVersion, layouts);
      continue;
    }
    findings.push_back({Severity::kProblem, "not-upgraded", database.path,
                        "has version " + VersionText(database),
                        "updater-ctl report tells from the system log why the run did not upgrade it"});
  }
  Append(layouts.Get(), findings);
  return findings;
}

}  // namespace ctl
