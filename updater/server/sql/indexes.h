// The package names an index after its table and column: "<table>_<column>_index".
#pragma once

#include <span>
#include <string>

namespace updater::server::sql {

struct Index {
  const char* table;
  const char* column;
};

// One CREATE INDEX IF NOT EXISTS statement for each entry, in order.
[[nodiscard]] std::string CreateIndexes(const char* schema, std::span<const Index> indexes);

}  // namespace updater::server::sql
