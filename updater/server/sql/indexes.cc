#include "updater/server/sql/indexes.h"

namespace updater::server::sql {

std::string CreateIndexes(const char* schema, std::span<const Index> indexes) {
  std::string script;
  for (const Index& index : indexes) {
    const std::string name = std::string(index.table) + "_" + index.column + "_index";
    script += std::string("CREATE INDEX IF NOT EXISTS ") + schema + "." + name + " ON " + index.table + "(" +
              index.column + ");";
  }
  return script;
}

}  // namespace updater::server::sql
