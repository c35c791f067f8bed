// The versions that databases can have, and the updaters between them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/output.h"
#include "updater/framework/version.h"

namespace ctl {

struct Edge {
  updater::Version from;
  updater::Version to;

  friend bool operator==(const Edge&, const Edge&) = default;
};

// In the order in which the updaters are registered.
[[nodiscard]] std::vector<Edge> AllEdges();

// The chain that a run would take from a version to the current one, first updater first; nothing, with the
// driver's words for it in `error`, where there is none.
[[nodiscard]] std::optional<std::vector<Edge>> ChainFrom(const updater::Version& from, std::string& error);

// The version with this number that an updater begins or ends with.
[[nodiscard]] std::optional<updater::Version> FindVersion(int number);

// "(master, 4100)", and "?" for one that could not be read.
[[nodiscard]] std::string TextOf(const std::optional<updater::Version>& version);

// Null for one that could not be read.
[[nodiscard]] Json ToJson(const std::optional<updater::Version>& version);
[[nodiscard]] Json ToJson(const std::vector<Edge>& edges);

}  // namespace ctl
