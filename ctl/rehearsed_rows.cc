#include "ctl/rehearsed_rows.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <system_error>

#include "base/errno.h"
#include "ctl/grouped_findings.h"
#include "ctl/refuse.h"
#include "ctl/survey_json.h"

namespace ctl {
namespace {

using Kind = DatabaseSurvey::Kind;

constexpr const char* kLost =
    "if nobody has worked with the package since the rehearsal, restore the databases and upgrade again; "
    "otherwise see that this is that work";

using Rows = std::map<std::string, long long>;  // by table

struct Content {
  DatabaseSurvey database;  // kind, name
  Rows rows;
  bool is_counted;
};
using Contents = std::map<std::pair<std::string, std::string>, Content>;  // by kind and name

// Throws what nlohmann throws where a document is not as it is written.
Contents ContentsIn(const Json& databases) {
  Contents contents;
  for (const Json& json : databases.get_ref<const Json::array_t&>()) {
    const std::string kind = json.at("kind");
    const std::string name = json.at("name");
    const Kind of_survey = kind == "view" ? Kind::kView : kind == "file" ? Kind::kFile : Kind::kShared;
    contents.insert_or_assign({kind, name}, Content{.database = {.kind = of_survey, .name = name, .path = {}},
                                                    .rows = json.at("rows").get<Rows>(),
                                                    .is_counted = json.at("error").is_null()});
  }
  return contents;
}

// What is said of a table; null: there is none. Nothing where both have as many rows.
std::string Difference(const std::string& table, const long long* rehearsed, const long long* now) {
  const auto rows = [](const long long* number) { return Count(static_cast<std::size_t>(*number), "row"); };
  if (now == nullptr)
    return "has no table " + table + ", which had " + rows(rehearsed) + " after the rehearsal";
  if (rehearsed == nullptr) return "has a table " + table + ", which was not there after the rehearsal";
  if (*rehearsed == *now) return {};
  return "table " + table + " has " + rows(now) + ", and had " + rows(rehearsed) + " after the rehearsal";
}

const long long* RowsOf(const Rows& tables, const std::string& table) {
  const auto found = tables.find(table);
  return found == tables.end() ? nullptr : &found->second;
}

void CompareTables(const Content& rehearsed, const Content& now, Grouped& findings) {
  Rows all = rehearsed.rows;
  all.insert(now.rows.begin(), now.rows.end());
  for (const auto& [table, any] : all) {
    const std::string difference = Difference(table, RowsOf(rehearsed.rows, table), RowsOf(now.rows, table));
    if (!difference.empty()) findings.Add(Severity::kProblem, "other-rows", difference, kLost, now.database);
  }
}

// The rows of before, and the log, which is the longest part.
bool LeaveOutWhatIsLong(int depth, Json::parse_event_t event, const Json& key) {
  return depth != 1 || event != Json::parse_event_t::key ||
         (key != "log" && key != "output" && key != "before");
}

}  // namespace

int ReadRehearsal(const std::string& path, Json& rehearsal, std::string& error) {
  std::ifstream file(path);
  std::error_code failure;
  const bool is_folder = std::filesystem::is_directory(path, failure);
  if (!file || is_folder) {
    const base::Errno reason = is_folder ? base::Errno(EISDIR) : base::Errno::Last();
    return Refuse(error, "cannot read " + path + ": " + reason.Text());
  }
  rehearsal = Json::parse(file, LeaveOutWhatIsLong, false);
  if (rehearsal.is_discarded()) {
    return Refuse(error, path + " is cut short, or no JSON: make it again with updater-ctl rehearse --json");
  }
  const Json wanted = NewDocument("rehearse");
  try {
    if (rehearsal.at("schema") == wanted.at("schema")) {
      if (rehearsal.at("schema_version") != wanted.at("schema_version")) {
        return Refuse(error, path + " has version " + rehearsal.at("schema_version").dump() +
                                 " of this schema, and this program reads version " +
                                 wanted.at("schema_version").dump());
      }
      (void)ContentsIn(rehearsal.at("after"));  // looked at for its form only
      for (const char* text : {"volume", "started"}) (void)rehearsal.at(text).get_ref<const std::string&>();
      if (rehearsal.at("succeeds").get<bool>()) return 0;
      return Refuse(error, "the rehearsal in " + path + " has failed: its rows are those before an upgrade");
    }
  } catch (const Json::exception&) {
    // Something is missing, or of another type.
  }
  return Refuse(error, path + " is no report of updater-ctl rehearse --json");
}

Findings CompareRows(const Json& rehearsal, const std::string& volume, const VolumeSurvey& survey) {
  // Both have been through the same writer, which replaces bytes that are no UTF-8.
  const Contents now =
      ContentsIn(Json::parse(ContentsOf(survey).dump(-1, ' ', false, Json::error_handler_t::replace)));
  const Contents rehearsed = ContentsIn(rehearsal.at("after"));
  Grouped findings;
  for (const auto& [key, content] : rehearsed) {
    const auto found = now.find(key);
    if (found == now.end()) {
      findings.Add(Severity::kProblem, "missing-since-rehearsal",
                   "was there after the rehearsal, and is not now", kLost, content.database);
    } else if (content.is_counted && found->second.is_counted) {
      CompareTables(content, found->second, findings);
    } else {
      findings.Add(Severity::kProblem, "not-compared",
                   "its rows could not all be counted, so they are not compared",
                   "see what is said of this database besides", content.database);
    }
  }
  for (const auto& [key, content] : now) {
    if (rehearsed.contains(key)) continue;
    findings.Add(Severity::kProblem, "new-since-rehearsal", "was not there after the rehearsal", kLost,
                 content.database);
  }
  Findings all = findings.Get();
  if (rehearsal.at("volume") != volume) {
    all.push_back({Severity::kWarning, "other-volume", rehearsal.at("volume"),
                   "is the volume that was rehearsed, and this is another path",
                   "see that the report is the one of this volume"});
  }
  return all;
}

}  // namespace ctl
