#include "ctl/database_diff.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <map>

#include "ctl/stop_signals.h"
#include "ctl/table_walk.h"
#include "db-util/look.h"
#include "updater/framework/stored_version.h"

namespace ctl {
namespace {

using db_util::Status;

struct Side {
  db_util::Database db;
  std::map<std::string, std::string> schema;  // "table x" -> its statement, without blanks and quotes
};

bool IsPartOfWord(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}

// The end of what is quoted from `begin` on, in which a quote is written twice.
std::size_t EndOfQuoted(const std::string& sql, std::size_t begin) {
  const char quote = sql[begin] == '[' ? ']' : sql[begin];
  std::size_t end = sql.find(quote, begin + 1);
  while (end != std::string::npos && quote != ']' && end + 1 < sql.size() && sql[end + 1] == quote) {
    end = sql.find(quote, end + 2);
  }
  return end == std::string::npos ? sql.size() : end + 1;
}

// The statement without what does not count: blanks, but where they part two words, and the quotes that a
// change of a name puts around it.
std::string Squeezed(const std::string& sql) {
  constexpr std::string_view kBlanks = " \t\r\n";
  constexpr std::string_view kQuotes = "'\"`[";
  std::string text;
  bool is_apart = false;  // from what was before
  for (std::size_t at = 0, end = 0; at < sql.size(); at = end) {
    end = kQuotes.find(sql[at]) == std::string_view::npos ? at + 1 : EndOfQuoted(sql, at);
    const bool is_blank = kBlanks.find(sql[at]) != std::string_view::npos;
    std::string part = sql.substr(at, end - at);
    const bool is_name =
        part.size() > 2 && part.front() == '"' && std::all_of(part.begin() + 1, part.end() - 1, IsPartOfWord);
    if (is_name) part = part.substr(1, part.size() - 2);
    if ((is_apart || is_name) && !text.empty() && IsPartOfWord(text.back()) && IsPartOfWord(part.front())) {
      text += ' ';
    }
    if (!is_blank) text += part;
    is_apart = is_blank || is_name;
  }
  return text;
}

// The rows of a walk come in the order of the bytes of their texts, so both have to have the same bytes.
Status CheckEncoding(sqlite3* db) {
  Status status;
  const Status asked = db_util::ForEachRow(db, "PRAGMA encoding;", [&status](sqlite3_stmt* row) {
    const std::string encoding = db_util::ColumnText(row, 0);
    if (encoding != "UTF-8") status = {.code = SQLITE_ERROR, .message = "its texts are in " + encoding};
    return true;
  });
  return asked.ok() ? status : asked;
}

std::optional<updater::Version> OpenSide(const std::string& path, Side& side, Status& status) {
  if (path.empty()) return std::nullopt;
  status = db_util::OpenToLook(path, side.db);
  if (status.ok()) status = CheckEncoding(side.db.get());
  if (status.ok()) {
    status = db_util::ForEachRow(side.db.get(),
                                 "SELECT type || ' ' || name, sql FROM sqlite_master "
                                 "WHERE name NOT LIKE 'sqlite\\_%' ESCAPE '\\' OR name = 'sqlite_sequence';",
                                 [&side](sqlite3_stmt* row) {
                                   side.schema[db_util::ColumnText(row, 0)] =
                                       Squeezed(db_util::ColumnText(row, 1));
                                   return true;
                                 });
  }
  updater::Version version;
  if (!status.ok() || !updater::ReadVersionFrom(side.db.get(), version).empty()) return std::nullopt;
  return version;
}

void CompareSchemas(const Side& a, const Side& b, std::vector<std::string>& differences) {
  for (const auto& [name, sql] : a.schema) {
    const auto other = b.schema.find(name);
    if (other == b.schema.end()) differences.push_back(name + ": only in A");
    if (other != b.schema.end() && other->second != sql) differences.push_back(name + ": differs");
  }
  for (const auto& [name, sql] : b.schema) {
    if (!a.schema.contains(name)) differences.push_back(name + ": only in B");
  }
  std::sort(differences.begin(), differences.end());
}

using Names = std::vector<std::string>;

Names KeyOf(std::vector<TableColumn> columns) {
  std::erase_if(columns, [](const TableColumn& column) { return column.key == 0; });
  std::sort(columns.begin(), columns.end(),
            [](const TableColumn& a, const TableColumn& b) { return a.key < b.key; });
  Names key;
  for (const TableColumn& column : columns) key.push_back(column.name);
  return key;
}

// What tells the rows of both apart: the key of the table, or columns that are unique, or the place of a row.
Names CommonKey(const std::vector<TableColumn>& a, const std::vector<Names>& a_unique,
                const std::vector<TableColumn>& b, const std::vector<Names>& b_unique) {
  Names key = KeyOf(a);
  if (!key.empty() && key == KeyOf(b)) return key;
  for (const Names& columns : a_unique) {
    const bool is_named = std::find(columns.begin(), columns.end(), "") == columns.end();
    if (is_named && std::find(b_unique.begin(), b_unique.end(), columns) != b_unique.end()) return columns;
  }
  const auto is_free = [&](const std::string& name) {
    const auto has_name = [&name](const TableColumn& column) {
      return strcasecmp(column.name.c_str(), name.c_str()) == 0;
    };
    return std::none_of(a.begin(), a.end(), has_name) && std::none_of(b.begin(), b.end(), has_name);
  };
  const auto free = std::find_if(kRowIds.begin(), kRowIds.end(), is_free);
  return free == kRowIds.end() ? Names{} : Names{*free};
}

class TableComparison {
 public:
  TableComparison(std::string table, std::size_t rows_shown) : rows_shown_(rows_shown) {
    diff_.table = std::move(table);
  }

  Status Run(sqlite3* a, sqlite3* b);
  [[nodiscard]] const TableDiff& diff() const { return diff_; }

 private:
  Status Prepare(sqlite3* a, sqlite3* b);
  [[nodiscard]] int CompareKeys() const;
  [[nodiscard]] int CountOf(const Names& names) const { return static_cast<int>(names.size()); }
  [[nodiscard]] TableDiff::Row RowOf(const TableWalk& walk) const;
  void AddOnly(const TableWalk& walk, long long& count, std::vector<TableDiff::Row>& first) const;
  void AddChanged();

  std::size_t rows_shown_;
  Names key_;
  Names columns_;  // of both, besides the key
  TableWalk a_;
  TableWalk b_;
  TableDiff diff_;
};

Status TableComparison::Prepare(sqlite3* a, sqlite3* b) {
  std::vector<TableColumn> a_columns;
  std::vector<TableColumn> b_columns;
  std::vector<Names> a_unique;
  std::vector<Names> b_unique;
  Status status = ReadColumns(a, diff_.table, a_columns);
  if (status.ok()) status = ReadColumns(b, diff_.table, b_columns);
  if (status.ok()) status = ReadUniqueColumns(a, diff_.table, a_unique);
  if (status.ok()) status = ReadUniqueColumns(b, diff_.table, b_unique);
  if (!status.ok()) return status;
  key_ = CommonKey(a_columns, a_unique, b_columns, b_unique);
  if (diff_.table == "sqlite_sequence") key_ = {"name"};  // which SQLite keeps apart without a key
  for (const TableColumn& column : a_columns) {
    const bool is_key = std::find(key_.begin(), key_.end(), column.name) != key_.end();
    const bool is_common = std::any_of(b_columns.begin(), b_columns.end(),
                                       [&](const TableColumn& other) { return other.name == column.name; });
    if (is_common && !is_key) columns_.push_back(column.name);
  }
  if (key_.empty()) return {.code = SQLITE_ERROR, .message = "nothing tells its rows apart"};
  for (const std::string& name : key_) diff_.key += (diff_.key.empty() ? "" : ", ") + name;
  status = a_.Begin(a, diff_.table, key_, columns_);
  return status.ok() ? b_.Begin(b, diff_.table, key_, columns_) : status;
}

int TableComparison::CompareKeys() const {
  if (!a_.has_row() || !b_.has_row()) return a_.has_row() ? -1 : 1;
  for (int i = 0; i < CountOf(key_); ++i) {
    const int order = CompareValues(a_, b_, i);
    if (order != 0) return order;
  }
  return 0;
}

TableDiff::Row TableComparison::RowOf(const TableWalk& walk) const {
  TableDiff::Row row;
  for (int i = 0; i < CountOf(key_); ++i) {
    row.key += (i == 0 ? "" : ", ") + key_[static_cast<std::size_t>(i)] + " = " + walk.Text(i);
  }
  return row;
}

void TableComparison::AddOnly(const TableWalk& walk, long long& count,
                              std::vector<TableDiff::Row>& first) const {
  ++count;
  if (first.size() >= rows_shown_) return;
  TableDiff::Row row = RowOf(walk);
  for (int i = 0; i < CountOf(columns_); ++i) {
    row.columns.push_back(columns_[static_cast<std::size_t>(i)] + ": " + walk.Text(CountOf(key_) + i));
  }
  first.push_back(std::move(row));
}

// A key is the same as 5 and as 5.0, but the row is not.
void TableComparison::AddChanged() {
  TableDiff::Row row;
  bool is_changed = false;
  const bool is_shown = diff_.first_changed.size() < rows_shown_;
  for (int column = 0; column < CountOf(key_) + CountOf(columns_); ++column) {
    if (AreEqual(a_, b_, column)) continue;
    is_changed = true;
    if (!is_shown) break;
    const auto i = static_cast<std::size_t>(column);
    const std::string& name = i < key_.size() ? key_[i] : columns_[i - key_.size()];
    row.columns.push_back(name + ": " + a_.Text(column) + " -> " + b_.Text(column));
  }
  if (!is_changed) return;
  ++diff_.changed;
  row.key = RowOf(a_).key;
  if (is_shown) diff_.first_changed.push_back(std::move(row));
}

Status TableComparison::Run(sqlite3* a, sqlite3* b) {
  Status status = Prepare(a, b);
  while (status.ok() && (a_.has_row() || b_.has_row())) {
    const int order = CompareKeys();
    if (order < 0) AddOnly(a_, diff_.only_a, diff_.first_only_a);
    if (order > 0) AddOnly(b_, diff_.only_b, diff_.first_only_b);
    if (order == 0) AddChanged();
    if (order <= 0) status = a_.Next();
    if (order >= 0 && status.ok()) status = b_.Next();
    if (status.ok() && CheckStop(status.message) < 0) status.code = SQLITE_INTERRUPT;
  }
  diff_.rows_a = a_.rows();
  diff_.rows_b = b_.rows();
  return status;
}

}  // namespace

DatabaseDiff CompareDatabases(const std::string& name, const std::string& a_path, const std::string& b_path,
                              std::size_t rows_shown) {
  constexpr std::string_view kTable = "table ";
  Side a;
  Side b;
  Status a_status;
  Status b_status;
  DatabaseDiff diff = {.name = name, .is_in_a = !a_path.empty(), .is_in_b = !b_path.empty()};
  diff.version_a = OpenSide(a_path, a, a_status);
  diff.version_b = OpenSide(b_path, b, b_status);
  if (!a_status.ok()) diff.errors.push_back("A: " + a_status.message);
  if (!b_status.ok()) diff.errors.push_back("B: " + b_status.message);
  if (!diff.errors.empty() || !diff.is_in_a || !diff.is_in_b) return diff;
  CompareSchemas(a, b, diff.schema);
  for (const auto& [object, sql] : a.schema) {
    if (!object.starts_with(kTable) || !b.schema.contains(object)) continue;
    TableComparison comparison(object.substr(kTable.size()), rows_shown);
    const Status status = comparison.Run(a.db.get(), b.db.get());
    if (!status.ok()) diff.errors.push_back(comparison.diff().table + ": " + status.message);
    if (!comparison.diff().is_equal()) diff.tables.push_back(comparison.diff());
  }
  return diff;
}

}  // namespace ctl
