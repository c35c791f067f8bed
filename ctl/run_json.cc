#include "ctl/run_json.h"

#include <nlohmann/json.hpp>

#include "ctl/survey_json.h"
#include "ctl/version_graph.h"

namespace ctl {
namespace {

Json TimesOf(const StepTimes& times) {
  Json json = {{"milliseconds", times.total()}, {"phases", Json::array()}, {"steps", Json::array()}};
  for (const auto& [phase, start, milliseconds] : times.phases()) {
    json["phases"].push_back({{"name", NameOf(phase)}, {"start", start}, {"milliseconds", milliseconds}});
  }
  for (const auto& [from, to, start, milliseconds, failed] : times.steps()) {
    json["steps"].push_back({{"from", ToJson(from)},
                             {"to", ToJson(to)},
                             {"start", start},
                             {"milliseconds", milliseconds},
                             {"failed", failed}});
  }
  return json;
}

}  // namespace

void AddRun(const VolumeSurvey& before, const VolumeSurvey& after, const RunRecord& run,
            const std::vector<logger::RecordingSink::Line>& log, const std::set<std::string>& allowed,
            Json& json) {
  json["status"] = run.status;
  json["succeeds"] = run.is_done;
  json["run"] = TimesOf(run.times);
  json["before"] = ContentsOf(before);
  json["after"] = ContentsOf(after);
  json["users"] = {{"before", before.users},
                   {"after", after.users},
                   {"removed", RemovedUsers(before, after)},
                   {"allowed", allowed}};
  json["output"] = run.output.str();
  json["log"] = Json::array();
  for (const auto& [priority, text] : log) json["log"].push_back({{"priority", priority}, {"text", text}});
}

}  // namespace ctl
