#include "updater/legacy/judgement.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "db-util/look.h"
#include "db-util/query.h"
#include "logger/log_sink.h"
#include "updater/legacy/declaration.h"

namespace updater::legacy {
namespace {

using logger::CutInTheMiddle;

constexpr const char* kConfigTable = "config_table";
constexpr const char* kUserTable = "user_table";
constexpr const char* kNodeTable = "node_table";
constexpr std::string_view kCreateIndex = "CREATE INDEX ";  // how SQLite writes it down
constexpr const char* kForeign = " is not of the layout";

struct Object {
  std::string type;
  std::string name;
  std::string table;
  std::string sql;
};

bool IsSameName(const std::string& one, const std::string& other) {
  return sqlite3_stricmp(one.c_str(), other.c_str()) == 0;
}

// Of a column or its table, whatever somebody has put into the schema.
std::string Shown(const std::string& text) { return CutInTheMiddle(text, logger::kLongestShownValue); }

bool Has(const std::string& declaration, std::string_view words) {
  return declaration.find(words) != std::string::npos;
}

// Whether the rows of a table can have the value that the column gives to a row without one.
bool HasDefault(const Column& column) {
  const std::string& declaration = column.declaration;
  return !Has(declaration, "primary key") && !Has(declaration, "unique") &&
         (!Has(declaration, "not null") || Has(declaration, "default"));
}

// A row that does not tell whose it is gets lost on the way to the databases of the views.
bool TellsWhose(const Column& column) { return column.name == "view_id" || column.name == "node_id"; }

// ALTER TABLE takes only a constant.
bool CanBeAdded(const Column& column) { return HasDefault(column) && !Has(column.declaration, "default ("); }

bool HasColumn(const Declaration& declaration, const std::string& name) {
  return std::ranges::find(declaration.columns, name, &Column::name) != declaration.columns.end();
}

// The columns of a table as they are to be written, in the order of their declarations.
std::vector<std::string> ColumnTexts(const Table& table) {
  std::vector<std::string> texts(1);
  int depth = 0;
  for (const char c : std::string_view(table.columns)) {
    if (c == '(') ++depth;
    if (c == ')') --depth;
    if (c == ',' && depth == 0) {
      texts.emplace_back();
    } else {
      texts.back() += c;
    }
  }
  return texts;
}

template <typename Parts>
auto FindPart(const Parts& parts, Database database, const std::string& name) {
  const auto* const found = std::find_if(parts.begin(), parts.end(), [&](const auto& part) {
    return part.database == database && IsSameName(part.name, name);
  });
  return found == parts.end() ? nullptr : &*found;
}

class Judging {
 public:
  Judging(sqlite3* db, const std::string& schema, Database database, int step)
      : db_(db), schema_(schema), target_(SchemaOf(database)), database_(database), step_(step) {}

  Judgement Judge() {
    if (!ReadObjects() || !ReadVersion()) return Take();
    judgement_.lacks_users = Find("table", kUserTable) == nullptr;
    if (judgement_.version <= kLayoutVersion && Find("table", kNodeTable) != nullptr)
      (void)FindRow(kNodeTable, judgement_.has_nodes);  // damage is found by those who need the rows
    if (judgement_.IsBelow()) {
      for (const Object& object : objects_) JudgeObject(object);
      ForEachPart(kTables, [this](const Table& table) { JudgeTable(table); });
      ForEachPart(kIndexes, [this](const Index& index) { JudgeIndex(index); });
      ForEachPart(kConfigRows, [this](const ConfigRow& row) { JudgeRow(row); });
    }
    return Take();
  }

  // The first reason is the one that is told.
  bool Refuse(const std::string& reason) {
    if (judgement_.refusal.empty()) judgement_.refusal = reason;
    return false;
  }

  bool CheckStatus(const db_util::Status& status) {
    return status.ok() || Refuse(Shown(status.message) + " (" + std::to_string(status.code) + ")");
  }

  Judgement Take() {
    if (!judgement_.refusal.empty()) judgement_.script.clear();
    return std::move(judgement_);
  }

 private:
  template <typename Parts, typename Use>
  void ForEachPart(const Parts& parts, const Use& use) {
    for (const auto& part : parts) {
      if (part.database == database_ && judgement_.refusal.empty()) use(part);
    }
  }

  // What is missing is made by its step, and must not be missing any more at the end.
  void Need(int step, const std::string& part, const std::string& script) {
    if (step == step_) judgement_.script += script;
    if (step < step_ && step_ == kLastStep)
      Refuse(part + " is missing: V" + std::to_string(step) + " has not run");
  }

  [[nodiscard]] const Object* Find(const std::string& type, const std::string& name) const {
    const auto found = std::ranges::find_if(
        objects_, [&](const Object& object) { return object.type == type && IsSameName(object.name, name); });
    return found == objects_.end() ? nullptr : &*found;
  }

  db_util::Status FindRow(const std::string& from, bool& found) {
    const std::string query = "SELECT 1 FROM " + schema_ + "." + from + " LIMIT 1;";
    return db_util::ForEachRow(db_, query, [&found](sqlite3_stmt*) { return !(found = true); });
  }

  bool ReadObjects() {
    return CheckStatus(
        db_util::ForEachRow(db_, "SELECT type, name, tbl_name, sql FROM " + schema_ + ".sqlite_master;",
                            [this](sqlite3_stmt* row) {
                              objects_.push_back({db_util::ColumnText(row, 0), db_util::ColumnText(row, 1),
                                                  db_util::ColumnText(row, 2), db_util::ColumnText(row, 3)});
                              return true;
                            }));
  }

  // A database without a table for it, without a row, or with nothing in it, is old.
  bool ReadVersion() {
    if (Find("view", kConfigTable) != nullptr) return Refuse("config_table is a view");
    const Object* const config = Find("table", kConfigTable);
    if (config != nullptr) config_ = ReadDeclaration(config->sql);
    if (!HasConfigValues()) return true;
    std::string text;
    const std::string query = "SELECT value FROM " + schema_ + ".config_table WHERE key = 'version';";
    if (!CheckStatus(db_util::ForEachRow(db_, query, [&](sqlite3_stmt* row) {
          text = db_util::ColumnText(row, 0);
          return true;
        }))) {
      return false;
    }
    char* end = nullptr;
    judgement_.version = std::strtoll(text.c_str(), &end, 10);  // as all others read it
    const bool is_number = end != text.c_str() && judgement_.version >= 0;
    return text.empty() || is_number || Refuse("'" + Shown(text) + "' is no version number");
  }

  [[nodiscard]] bool HasConfigValues() const {
    return HasColumn(config_, "key") && HasColumn(config_, "value");
  }

  // SQLite's own tables and indexes are there with those that they serve, or hold statistics.
  void JudgeObject(const Object& object) {
    const bool is_internal = sqlite3_strnicmp(object.name.c_str(), "sqlite_", sizeof("sqlite_") - 1) == 0;
    const bool is_table = object.type == "table";
    if (is_internal && (is_table || object.type == "index")) return;
    const bool is_known = (is_table && FindPart(kTables, database_, object.name) != nullptr) ||
                          (object.type == "index" && FindPart(kTables, database_, object.name) == nullptr &&
                           object.sql.starts_with(kCreateIndex) && !OneStatement(object.sql).empty());
    if (!is_known) Refuse(object.type + " " + Shown(object.name) + kForeign);
  }

  void JudgeTable(const Table& table) {
    const std::string what = std::string("table ") + table.name;
    const Object* const found = Find("table", table.name);
    if (found == nullptr) return Need(table.step, what, CreateTable(target_ + "." + table.name, table));
    const Declaration expected = ReadDeclaration(CreateTable(table.name, table));
    const Declaration declared = ReadDeclaration(found->sql);
    if (declared.name != expected.name || !declared.rest.empty()) {
      Refuse(what + " is declared as '" + Shown(found->sql) + "'");
    } else if (JudgeColumns(table, expected, declared)) {
      JudgeMissingColumns(table, expected, declared);
    }
  }

  bool JudgeColumns(const Table& table, const Declaration& expected, const Declaration& declared) {
    for (const auto& [name, declaration] : declared.columns) {
      const std::string what = std::string("column ") + table.name + "." + Shown(name);
      const auto known = std::ranges::find(expected.columns, name, &Column::name);
      if (known == expected.columns.end()) return Refuse(what + kForeign);
      if (known->declaration != declaration) {
        return Refuse(what + " is declared as '" + Shown(declaration) + "', not as '" + known->declaration +
                      "'");
      }
    }
    return true;
  }

  // Later updaters move rows by position, so what cannot be added behind the others needs a new table.
  void JudgeMissingColumns(const Table& table, const Declaration& expected, const Declaration& declared) {
    if (std::ranges::equal(expected.columns, declared.columns, {}, &Column::name, &Column::name)) return;
    bool has_rows = false;
    if (!CheckStatus(FindRow(table.name, has_rows))) return;
    const std::vector<std::string> texts = ColumnTexts(table);
    std::string common;
    std::string added;
    std::string missing = "the order of the columns";
    bool are_last = true;
    for (std::size_t i = 0; i < texts.size(); ++i) {
      const Column& column = expected.columns[i];
      are_last &= i >= declared.columns.size() || declared.columns[i].name == column.name;
      if (HasColumn(declared, column.name)) {
        common += (common.empty() ? "" : ", ") + column.name;
        continue;
      }
      missing = std::string("column ") + table.name + "." + column.name;
      // A configuration is nothing without its keys or its values.
      if (has_rows && (!HasDefault(column) || TellsWhose(column) || IsSameName(table.name, kConfigTable))) {
        Refuse(missing + " is missing and cannot be given a default");
        return;
      }
      are_last &= CanBeAdded(column);
      added += "ALTER TABLE " + target_ + "." + table.name + " ADD COLUMN " + texts[i] + ";";
    }
    Need(table.step, missing, are_last ? added : Rebuild(table, common));
  }

  // Numbers that were given to rows which are gone are not given again.
  std::string Rebuild(const Table& table, const std::string& common) {
    const std::string name = std::string(table.name) + "_of_2577";
    const std::string sequence = target_ + ".sqlite_sequence";
    std::string script = CreateTable(target_ + "." + name, table) + "INSERT INTO " + target_ + "." + name +
                         " (" + common + ") SELECT " + common + " FROM " + target_ + "." + table.name + ";";
    if (Has(table.columns, "AUTOINCREMENT")) {
      script += "DELETE FROM " + sequence + " WHERE name = '" + name + "';INSERT INTO " + sequence +
                " (name, seq) SELECT '" + name + "', seq FROM " + sequence + " WHERE name = '" + table.name +
                "' COLLATE NOCASE;";
    }
    script += "DROP TABLE " + target_ + "." + table.name + ";ALTER TABLE " + target_ + "." + name +
              " RENAME TO " + table.name + ";";
    for (const Object& index : objects_) {
      if (index.type != "index" || !IsSameName(index.table, table.name) || index.sql.empty()) continue;
      script += std::string(kCreateIndex) + target_ + "." +
                OneStatement(index.sql).substr(kCreateIndex.size()) + ";";
    }
    return script;
  }

  void JudgeIndex(const Index& index) {
    const std::string what = std::string("index ") + index.name;
    const Object* const found = Find("index", index.name);
    if (found == nullptr) return Need(index.step, what, CreateIndex(target_ + "." + index.name, index));
    if (WithoutStyle(found->sql) != WithoutStyle(CreateIndex(index.name, index)))
      Refuse(what + " is declared as '" + Shown(found->sql) + "'");
  }

  void JudgeRow(const ConfigRow& row) {
    const std::string insert =
        "INTO " + target_ + ".config_table (key, value) VALUES ('" + row.key + "', " + row.value + ");";
    if (std::string_view(row.key) == kVersionKey) {
      return Need(
          row.step, row.key,
          "INSERT OR REPLACE " + insert + "DELETE FROM " + target_ + ".config_table WHERE key = 'branch';");
    }
    bool found = false;
    const std::string from = std::string(kConfigTable) + " WHERE key = '" + row.key + "'";
    if (HasConfigValues() && !CheckStatus(FindRow(from, found))) return;
    if (!found) Need(row.step, std::string("configuration row ") + row.key, "INSERT " + insert);
  }

  sqlite3* db_;
  std::string schema_;
  std::string target_;
  Database database_;
  int step_;
  std::vector<Object> objects_;
  Declaration config_;
  Judgement judgement_;
};

}  // namespace

std::string RefusalOfBoth(const Judgement& data, const Judgement& user) {
  const bool is_owner_lost = user.IsBelow() && user.lacks_users && data.has_nodes;
  return is_owner_lost ? std::string("table ") + kUserTable + " is missing beside a data_db with nodes" : "";
}

Judgement Judge(sqlite3* db, const std::string& schema, Database database, int step) {
  return Judging(db, schema, database, step).Judge();
}

Judgement JudgeFile(const std::string& path, Database database, int step) {
  db_util::Database db;
  const db_util::Status status = db_util::OpenToLook(path, db);
  Judging judging(db.get(), "main", database, step);
  return judging.CheckStatus(status) ? judging.Judge() : judging.Take();
}

}  // namespace updater::legacy
