#include "updater/legacy/layout.h"

#include <algorithm>
#include <string_view>

namespace updater::legacy {
namespace {

// Every part is in a database that its step gets.
constexpr std::string_view NameOf(const Table& table) { return table.name; }
constexpr std::string_view NameOf(const Index& index) { return index.name; }
constexpr std::string_view NameOf(const ConfigRow& row) { return row.key; }

template <typename Parts>
constexpr bool AreThereOnce(const Parts& parts) {
  return std::all_of(parts.begin(), parts.end(), [&parts](const auto& part) {
    return std::count_if(parts.begin(), parts.end(), [&part](const auto& other) {
             return other.database == part.database && NameOf(other) == NameOf(part);
           }) == 1;
  });
}
static_assert(AreThereOnce(kTables) && AreThereOnce(kIndexes) && AreThereOnce(kConfigRows));

template <typename Parts>
constexpr bool HaveTheirStep(const Parts& parts) {
  return std::all_of(parts.begin(), parts.end(), [](const auto& part) {
    return std::any_of(kSteps.begin(), kSteps.end(), [&part](const StepRow& step) {
      return step.number == part.step && step.Gets(part.database);
    });
  });
}
static_assert(HaveTheirStep(kTables) && HaveTheirStep(kIndexes) && HaveTheirStep(kConfigRows));

template <typename Parts, typename Create>
std::string CreateAll(Database database, const Parts& parts, const Create& create) {
  std::string script;
  for (const auto& part : parts) {
    if (part.database == database) script += create(part.name, part);
  }
  return script;
}

}  // namespace

std::string CreateTable(const std::string& name, const Table& like) {
  return "CREATE TABLE " + name + " (" + like.columns + ");";
}

std::string CreateIndex(const std::string& name, const Index& like) {
  return "CREATE INDEX " + name + " ON " + like.table + " (" + like.column + ");";
}

std::string CreateTables(Database database) { return CreateAll(database, kTables, CreateTable); }

std::string CreateIndexes(Database database) { return CreateAll(database, kIndexes, CreateIndex); }

}  // namespace updater::legacy
