// The rows of one table in the order of their keys, for walking through two tables side by side.
#pragma once

#include <sqlite3.h>

#include <array>
#include <string>
#include <vector>

#include "db-util/hardening.h"
#include "db-util/query.h"

namespace ctl {

// The key of a table that has none, by each of its names: a column may have one of them.
inline constexpr std::array kRowIds = {"rowid", "_rowid_", "oid"};

struct TableColumn {
  std::string name;
  int key = 0;  // its place in the primary key, from 1; 0: it is no part of it
};

[[nodiscard]] db_util::Status ReadColumns(sqlite3* db, const std::string& table,
                                          std::vector<TableColumn>& columns);

// The columns of every unique index, each in their order.
[[nodiscard]] db_util::Status ReadUniqueColumns(sqlite3* db, const std::string& table,
                                                std::vector<std::vector<std::string>>& unique);

// Only the current row is in memory.
class TableWalk {
 public:
  // Begins with the first row. The values are those of `keys`, then those of `columns`.
  db_util::Status Begin(sqlite3* db, const std::string& table, const std::vector<std::string>& keys,
                        const std::vector<std::string>& columns);
  db_util::Status Next();

  [[nodiscard]] bool has_row() const { return has_row_; }
  [[nodiscard]] long long rows() const { return rows_; }  // so far
  [[nodiscard]] sqlite3_stmt* row() const { return statement_.get(); }
  // The value, texts in quotes and blobs as x'...', cut where it is long.
  [[nodiscard]] std::string Text(int column) const;

 private:
  db_util::WorkLimit limit_;
  sqlite3* db_ = nullptr;
  db_util::Statement statement_;
  bool has_row_ = false;
  long long rows_ = 0;
};

// The order of SQLite: NULL, numbers, texts and blobs, each by its bytes.
[[nodiscard]] int CompareValues(const TableWalk& a, const TableWalk& b, int column);
// Whether the values are of one type and the same.
[[nodiscard]] bool AreEqual(const TableWalk& a, const TableWalk& b, int column);

}  // namespace ctl
