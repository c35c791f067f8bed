// The graph of versions and updaters, and the search for the shortest chain.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "updater/framework/abstract_updater.h"

namespace updater {

// Built afresh for each run. The updaters are borrowed.
class UpdateGraph {
 public:
  // Adds one edge for every updater, in their order.
  void Build(const std::vector<std::unique_ptr<AbstractUpdater>>& updaters);

  // Finds the chain with the fewest updaters and puts it into `path`, first updater first; an empty chain
  // when both versions are equal. Between chains of equal length a version keeps the predecessor that stands
  // first in the topological order; between parallel updaters the one added first is used. Returns 0, or -1
  // with the reason in GetLastError().
  //
  // An updater from a version to itself is a mistake in the program: it says "BUG!", reads a number from
  // standard input, and ends the process with status 1.
  [[nodiscard]] int ShortestPath(const Version& from, const Version& to, std::vector<AbstractUpdater*>& path);

  [[nodiscard]] const std::string& GetLastError() const { return last_error_; }

 private:
  enum class Color { kWhite, kGray, kBlack };

  struct Vertex {
    Version version;
    std::vector<AbstractUpdater*> updaters;  // those that start here
    std::vector<Vertex*> adjacent;           // where they lead, one entry an updater
    Vertex* predecessor = nullptr;
    Color color = Color::kWhite;
    int distance = 0;  // -1: not reached
  };

  Vertex& GetOrCreate(const Version& version);
  [[nodiscard]] Vertex* Find(const Version& version) const;
  [[nodiscard]] int Fail(std::string reason);

  [[nodiscard]] std::vector<Vertex*> SortTopologically();
  static void Visit(Vertex& vertex, std::vector<Vertex*>& finished);
  [[nodiscard]] int RelaxFrom(const Version& from);
  static void Relax(Vertex& from, Vertex& to);
  [[nodiscard]] int Reconstruct(const Version& from, const Version& to, std::vector<AbstractUpdater*>& path);

  std::map<Version, std::unique_ptr<Vertex>> vertices_;
  std::string last_error_;
};

}  // namespace updater
