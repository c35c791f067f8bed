#include "ctl/survey_json.h"

#include <nlohmann/json.hpp>

#include "ctl/version_graph.h"

namespace ctl {

const char* KindName(const DatabaseSurvey& database) {
  if (database.kind == DatabaseSurvey::Kind::kShared) return database.name.c_str();
  return database.kind == DatabaseSurvey::Kind::kView ? "view" : "file";
}

Json ContentOf(const DatabaseSurvey& database) {
  Json json = {{"kind", KindName(database)}, {"name", database.name}, {"branch", nullptr},
               {"version", nullptr},         {"error", nullptr},      {"bytes", database.bytes},
               {"rows", Json::object()}};
  if (database.version) json.update(ToJson(*database.version));
  if (!database.error.empty()) json["error"] = database.error;
  for (const DatabaseSurvey::TableRows& table : database.tables) json["rows"][table.table] = table.rows;
  return json;
}

Json ContentsOf(const VolumeSurvey& survey) {
  Json list = Json::array();
  for (const DatabaseSurvey& database : survey.databases) list.push_back(ContentOf(database));
  return list;
}

}  // namespace ctl
