#include "ctl/version_graph.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/demo_platform.h"
#include "package/layout.h"
#include "updater/framework/update_graph.h"
#include "updater/legacy/layout.h"
#include "updater/server/registration.h"

namespace ctl {
namespace {

using Updaters = std::vector<std::unique_ptr<updater::AbstractUpdater>>;

// They are asked for their versions only, so they need no databases and no machine.
template <typename Use>
auto WithUpdaters(const Use& use) {
  DemoPlatform nobody({}, MadeUpIdentity(), {});
  std::ostream silent(nullptr);
  return use(updater::server::CreateServerUpdaters({{}, silent, nobody.platform()}, {}));
}

Edge EdgeOf(const updater::AbstractUpdater& updater) {
  return {updater.GetFromVersion(), updater.GetToVersion()};
}

}  // namespace

std::vector<Edge> AllEdges() {
  return WithUpdaters([](const Updaters& updaters) {
    std::vector<Edge> edges;
    for (const auto& updater : updaters) edges.push_back(EdgeOf(*updater));
    return edges;
  });
}

std::optional<std::vector<Edge>> ChainFrom(const updater::Version& from, std::string& error) {
  return WithUpdaters([&](const Updaters& updaters) -> std::optional<std::vector<Edge>> {
    updater::UpdateGraph graph;
    graph.Build(updaters);
    std::vector<updater::AbstractUpdater*> path;
    if (graph.ShortestPath(from, {package::kCurrentBranch, package::kCurrentVersion}, path) < 0) {
      error = graph.GetLastError();
      if (from.number < updater::legacy::kLayoutVersion) error += "; below 2577 a run needs --dont-skip";
      return std::nullopt;
    }
    std::vector<Edge> chain;
    chain.reserve(path.size());
    for (const updater::AbstractUpdater* updater : path) chain.push_back(EdgeOf(*updater));
    return chain;
  });
}

std::optional<updater::Version> FindVersion(int number) {
  for (const auto& [from, to] : AllEdges()) {
    if (from.number == number) return from;
    if (to.number == number) return to;
  }
  return std::nullopt;
}

std::string TextOf(const std::optional<updater::Version>& version) {
  if (!version) return "?";
  std::string text = updater::ToString(*version);
  text.pop_back();  // the blank that messages depend on
  return text;
}

Json ToJson(const std::optional<updater::Version>& version) {
  if (!version) return nullptr;
  return {{"branch", version->branch}, {"version", version->number}};
}

Json ToJson(const std::vector<Edge>& edges) {
  Json list = Json::array();
  for (const auto& [from, to] : edges) list.push_back({{"from", ToJson(from)}, {"to", ToJson(to)}});
  return list;
}

}  // namespace ctl
