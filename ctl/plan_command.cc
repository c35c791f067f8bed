#include <algorithm>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/commands.h"
#include "ctl/finding.h"
#include "ctl/look_arguments.h"
#include "ctl/output.h"
#include "ctl/version_graph.h"
#include "ctl/volume_survey.h"
#include "package/layout.h"

namespace ctl {
namespace {

struct PlanArguments {
  std::string volume;
  int from = 0;
  bool is_dot = false;
  bool is_json = false;
};

struct Plan {
  std::optional<updater::Version> start;  // nothing: the whole graph was asked for
  std::vector<Edge> edges;
  std::vector<Edge> chain;
  std::string error;  // why there is no chain
};

bool IsInChain(const Plan& plan, const Edge& edge) {
  return std::find(plan.chain.begin(), plan.chain.end(), edge) != plan.chain.end();
}

void PrintDot(const Plan& plan, std::ostream& out) {
  out << "digraph updaters {\n  rankdir=LR;\n  node [shape=box];\n";
  if (plan.start) out << "  \"" << TextOf(plan.start) << "\" [style=bold];\n";
  for (const Edge& edge : plan.edges) {
    out << "  \"" << TextOf(edge.from) << "\" -> \"" << TextOf(edge.to) << "\""
        << (IsInChain(plan, edge) ? " [style=bold]" : "") << ";\n";
  }
  out << "}\n";
}

void PrintPlan(const Plan& plan, std::ostream& out) {
  out << "The graph\n";
  for (const Edge& edge : plan.edges) {
    out << (IsInChain(plan, edge) ? "  * " : "    ") << TextOf(edge.from) << " -> " << TextOf(edge.to)
        << "\n";
  }
  if (!plan.start) return;
  out << "The chain from " << Printable(TextOf(plan.start)) << "\n";
  for (const Edge& edge : plan.chain) out << "  " << TextOf(edge.from) << " -> " << TextOf(edge.to) << "\n";
  if (!plan.error.empty()) {
    out << "  ";
    PrintWrapped(2, "    ", "none: " + Printable(plan.error), out);
  }
  if (plan.error.empty() && plan.chain.empty()) out << "  nothing to do\n";
}

Json DocumentOf(const Plan& plan) {
  Json json = NewDocument("plan");
  json["start"] = plan.start ? ToJson(*plan.start) : Json();
  json["edges"] = ToJson(plan.edges);
  json["chain"] = plan.start && plan.error.empty() ? ToJson(plan.chain) : Json();
  json["error"] = plan.error.empty() ? Json() : Json(plan.error);
  return json;
}

// Returns 0, or -1 with the reason in `error`.
int FindStart(const PlanArguments& arguments, std::optional<updater::Version>& start, std::string& error) {
  if (arguments.from != 0) {
    start = FindVersion(arguments.from);
    if (!start) start = updater::Version{package::kMasterBranch, arguments.from};
  } else if (!arguments.volume.empty()) {
    std::string volume;
    if (FindPackage(arguments.volume, volume, error) < 0) return -1;
    const std::string data = package::VolumePaths(volume).live.data;
    start = ReadVersionOf(data, error);
    if (!start) error = "cannot read the version of " + data + ": " + error;
    return start ? 0 : -1;
  }
  return 0;
}

int ShowPlan(const PlanArguments& arguments, const Streams& streams) {
  Plan plan = {.start = {}, .edges = AllEdges(), .chain = {}, .error = {}};
  std::string error;
  if (FindStart(arguments, plan.start, error) < 0) return TellReason(streams, error, kRefused);
  if (plan.start) plan.chain = ChainFrom(*plan.start, plan.error).value_or(std::vector<Edge>());
  if (arguments.is_dot) {
    PrintDot(plan, streams.out);
  } else if (arguments.is_json) {
    PrintJson(DocumentOf(plan), streams.out);
  } else {
    PrintPlan(plan, streams.out);
  }
  return plan.error.empty() ? 0 : kFailed;
}

}  // namespace

Action DefinePlan(Arguments& command, const Streams& streams) {
  const auto arguments = std::make_shared<PlanArguments>();
  const Argument volume =
      command.AddPath("volume", arguments->volume, "The volume whose data database is to be upgraded");
  command
      .AddNumber("--from", arguments->from, 1, std::numeric_limits<int>::max(),
                 "A version to begin with instead")
      .Exclude(volume);
  const Argument dot = command.AddFlag("--dot", arguments->is_dot, "Write the graph for Graphviz");
  command.AddJsonFlag(arguments->is_json).Exclude(dot);
  command.SetFooter(
      "Examples:\n  updater-ctl plan\n  updater-ctl plan /volume1\n"
      "  updater-ctl plan --from 3300 --dot | dot -Tsvg > plan.svg");
  return [arguments, streams] { return ShowPlan(*arguments, streams); };
}

}  // namespace ctl
