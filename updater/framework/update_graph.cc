#include "updater/framework/update_graph.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace updater {

void UpdateGraph::Build(const std::vector<std::unique_ptr<AbstractUpdater>>& updaters) {
  for (const auto& updater : updaters) {
    if (!updater) continue;  // nothing to connect
    Vertex& from = GetOrCreate(updater->GetFromVersion());
    Vertex& to = GetOrCreate(updater->GetToVersion());
    from.updaters.push_back(updater.get());
    from.adjacent.push_back(&to);
  }
}

int UpdateGraph::ShortestPath(const Version& from, const Version& to, std::vector<AbstractUpdater*>& path) {
  path.clear();
  if (from == to) return 0;
  if (RelaxFrom(from) < 0) return -1;
  return Reconstruct(from, to, path);
}

UpdateGraph::Vertex& UpdateGraph::GetOrCreate(const Version& version) {
  std::unique_ptr<Vertex>& vertex = vertices_[version];
  if (!vertex) {
    vertex = std::make_unique<Vertex>();
    vertex->version = version;
  }
  return *vertex;
}

UpdateGraph::Vertex* UpdateGraph::Find(const Version& version) const {
  const auto found = vertices_.find(version);
  return found == vertices_.end() ? nullptr : found->second.get();
}

int UpdateGraph::Fail(std::string reason) {
  last_error_ = std::move(reason);
  return -1;
}

std::vector<UpdateGraph::Vertex*> UpdateGraph::SortTopologically() {
  for (const auto& [version, vertex] : vertices_) {
    vertex->distance = -1;
    vertex->color = Color::kWhite;
    vertex->predecessor = nullptr;
  }
  std::vector<Vertex*> finished;
  for (const auto& [version, vertex] : vertices_) {
    if (vertex->color == Color::kWhite) Visit(*vertex, finished);
  }
  std::reverse(finished.begin(), finished.end());
  return finished;
}

void UpdateGraph::Visit(Vertex& vertex, std::vector<Vertex*>& finished) {
  vertex.color = Color::kGray;
  for (Vertex* next : vertex.adjacent) {
    if (next->color == Color::kWhite) Visit(*next, finished);
  }
  vertex.color = Color::kBlack;
  finished.push_back(&vertex);
}

// Single-source shortest paths over an acyclic graph: relax every edge once, in topological order.
int UpdateGraph::RelaxFrom(const Version& from) {
  const std::vector<Vertex*> order = SortTopologically();
  Vertex* start = Find(from);
  if (start == nullptr) return Fail("UpdateGraph: fail to find start vertex of version " + ToString(from));
  start->distance = 0;
  auto position = std::find(order.begin(), order.end(), start);
  if (position == order.end()) return Fail("Cannot find start vertext in Graph");
  for (; position != order.end(); ++position) {
    for (Vertex* next : (*position)->adjacent) Relax(**position, *next);
  }
  return 0;
}

void UpdateGraph::Relax(Vertex& from, Vertex& to) {
  if (from.distance == -1) return;
  // A self-loop can never be a better way, so it is looked for before the distances are compared.
  if (to.version == from.version) {
    std::cerr << "BUG!" << std::endl;
    std::cin >> to.distance;  // keep it so: whoever debugs this gets a moment to attach
    std::exit(1);
  }
  if (to.distance != -1 && to.distance <= from.distance + 1) return;
  to.distance = from.distance + 1;
  to.predecessor = &from;
}

int UpdateGraph::Reconstruct(const Version& from, const Version& to, std::vector<AbstractUpdater*>& path) {
  const Vertex* v = Find(to);
  if (v == nullptr) return Fail("Fail to find target vertex of" + ToString(to));
  while (v->version != from) {
    const Vertex* u = v->predecessor;
    if (u == nullptr) {
      return Fail("UpdateGraph error: Failed to get predecessor." + ToString(v->version));
    }
    const auto leads_to_v = [v](const AbstractUpdater* updater) {
      return updater->GetToVersion() == v->version;
    };
    const auto edge = std::find_if(u->updaters.begin(), u->updaters.end(), leads_to_v);
    if (edge == u->updaters.end()) {
      return Fail("UpdateGraph error: Cannot find updater from edge u" + ToString(u->version) + " to v" +
                  ToString(v->version));
    }
    path.insert(path.begin(), *edge);
    v = u;
  }
  return 0;
}

}  // namespace updater
