#include "ctl/golden_layout.h"

#include <tuple>

#include "ctl/golden_layout_data.h"
#include "db-util/database.h"
#include "db-util/execute.h"
#include "db-util/query.h"

namespace ctl {
namespace {

using Kind = DatabaseSurvey::Kind;

constexpr const char* kColumns =
    "SELECT m.name, c.name, c.type FROM sqlite_master AS m, pragma_table_info(m.name) AS c "
    "WHERE m.type = 'table' AND m.name NOT LIKE 'sqlite_%';";
constexpr const char* kIndexes =
    "SELECT m.name, m.tbl_name, i.name FROM sqlite_master AS m, pragma_index_info(m.name) AS i "
    "WHERE m.type = 'index' AND m.sql IS NOT NULL ORDER BY m.name, i.seqno;";
constexpr const char* kOthers =
    "SELECT type, name, sql FROM sqlite_master WHERE type IN ('trigger', 'view') ORDER BY name;";

std::string WithoutBlanks(const std::string& statement) {
  std::string text;
  for (const char c : statement) {
    if (std::string_view(" \t\r\n;").find(c) == std::string_view::npos) text += c;
  }
  return text;
}

// Runs a query over rows of three texts.
template <typename Use>
db_util::Status ForEachTriple(sqlite3* db, const char* query, const Use& use) {
  return db_util::ForEachRow(db, query, [&](sqlite3_stmt* row) {
    use(db_util::ColumnText(row, 0), db_util::ColumnText(row, 1), db_util::ColumnText(row, 2));
    return true;
  });
}

}  // namespace

db_util::Status ReadLayout(sqlite3* db, Layout& layout) {
  using Text = std::string;
  db_util::Status status = ForEachTriple(
      db, kColumns,
      [&](const Text& table, const Text& name, const Text& type) { layout.tables[table][name] = type; });
  if (!status.ok()) return status;
  status = ForEachTriple(db, kIndexes, [&](const Text& index, const Text& table, const Text& column) {
    std::string& text = layout.indexes[index];
    text = text.empty() ? table + " (" + column + ")" : text.substr(0, text.size() - 1) + ", " + column + ")";
  });
  if (!status.ok()) return status;
  return ForEachTriple(db, kOthers, [&](const Text& type, const Text& name, const Text& sql) {
    if (type == "view") layout.views.insert(name);
    if (type == "trigger") layout.triggers[name] = WithoutBlanks(sql);
  });
}

const Layout* GoldenLayout(Kind kind, const std::string& name, int version) {
  static std::map<std::tuple<Kind, std::string, int>, Layout> known;
  const std::string shared = kind == Kind::kShared ? name : "";
  const auto [found, is_new] = known.try_emplace({kind, shared, version});
  if (is_new) {
    db_util::Database db;
    db_util::Status status = db_util::OpenQuietly(":memory:", db, db_util::OpenMode::kReadWrite);
    for (const golden::Change& change : golden::kChanges) {
      if (change.kind != kind || change.name != shared || change.version > version || !status.ok()) continue;
      status = db_util::Execute(db.get(), change.statements);
    }
    if (status.ok()) (void)ReadLayout(db.get(), found->second);  // what fails leaves it empty
  }
  return found->second.tables.empty() ? nullptr : &found->second;
}

}  // namespace ctl
