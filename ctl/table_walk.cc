#include "ctl/table_walk.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "ctl/output.h"
#include "db-util/execute.h"

namespace ctl {
namespace {

std::string Quoted(const std::string& name) {
  std::string text = "\"";
  for (const char character : name) text.append(character == '"' ? 2 : 1, character);
  return text + "\"";
}

// The place of a type in the order of values; whole numbers and others are one.
int RankOf(int type) {
  if (type == SQLITE_NULL) return 0;
  return type == SQLITE_TEXT ? 2 : type == SQLITE_BLOB ? 3 : 1;
}

struct ByteSpan {
  const void* data;
  std::size_t size;
};

ByteSpan BytesOf(sqlite3_stmt* row, int column) {
  const void* const data = sqlite3_column_blob(row, column);  // of a text its bytes
  return {data, static_cast<std::size_t>(sqlite3_column_bytes(row, column))};
}

int Compare(const ByteSpan& a, const ByteSpan& b) {
  const std::size_t both = std::min(a.size, b.size);
  const int order = both == 0 ? 0 : std::memcmp(a.data, b.data, both);
  return order != 0 ? order : a.size < b.size ? -1 : a.size > b.size ? 1 : 0;
}

template <typename Number>
int CompareNumbers(Number a, Number b) {
  return a < b ? -1 : b < a ? 1 : 0;
}

// Exactly, as SQLite does: not every whole number is a floating one.
int CompareMixed(sqlite3_int64 a, double b) {
  constexpr double kEnd = 9223372036854775808.0;
  if (b >= kEnd || b < -kEnd) return b < 0 ? 1 : -1;
  const int order = CompareNumbers(a, static_cast<sqlite3_int64>(b));
  return order != 0 ? order : CompareNumbers(static_cast<double>(a), b);
}

}  // namespace

db_util::Status ReadColumns(sqlite3* db, const std::string& table, std::vector<TableColumn>& columns) {
  return db_util::ForEachRow(db, "PRAGMA table_info(" + Quoted(table) + ");", [&columns](sqlite3_stmt* row) {
    columns.push_back({db_util::ColumnText(row, 1), sqlite3_column_int(row, 5)});
    return true;
  });
}

db_util::Status ReadUniqueColumns(sqlite3* db, const std::string& table,
                                  std::vector<std::vector<std::string>>& unique) {
  std::vector<std::string> names;
  db_util::Status status =
      db_util::ForEachRow(db, "PRAGMA index_list(" + Quoted(table) + ");", [&names](sqlite3_stmt* row) {
        const bool is_whole = sqlite3_column_int(row, 4) == 0;
        if (is_whole && sqlite3_column_int(row, 2) != 0) names.push_back(db_util::ColumnText(row, 1));
        return true;
      });
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    std::vector<std::string>& columns = unique.emplace_back();
    db_util::Status listed =
        db_util::ForEachRow(db, "PRAGMA index_info(" + Quoted(name) + ");", [&columns](sqlite3_stmt* row) {
          columns.push_back(db_util::ColumnText(row, 2));  // of an expression it is empty
          return true;
        });
    if (status.ok()) status = std::move(listed);
  }
  return status;
}

db_util::Status TableWalk::Begin(sqlite3* db, const std::string& table, const std::vector<std::string>& keys,
                                 const std::vector<std::string>& columns) {
  std::string values;
  std::string order;
  for (const std::string& key : keys) {
    // In quotes it would be a text where a table has none.
    const bool is_rowid = std::find(kRowIds.begin(), kRowIds.end(), key) != kRowIds.end();
    const std::string name = is_rowid ? key : Quoted(key);
    values += (values.empty() ? "" : ", ") + name;
    order += (order.empty() ? "" : ", ") + name + " COLLATE BINARY";
  }
  for (const std::string& column : columns) values += ", " + Quoted(column);
  const std::string query = "SELECT " + values + " FROM main." + Quoted(table) + " ORDER BY " + order + ";";
  sqlite3_stmt* prepared = nullptr;
  const int code = sqlite3_prepare_v2(db, query.c_str(), -1, &prepared, nullptr);
  statement_.reset(prepared);
  db_ = db;
  if (code != SQLITE_OK) return db_util::FailureOf(db, code, db_util::Status::Call::kPrepare);
  limit_.AllowForRows(db);
  return Next();
}

db_util::Status TableWalk::Next() {
  const int code = sqlite3_step(statement_.get());
  has_row_ = code == SQLITE_ROW;
  if (has_row_) ++rows_;
  if (has_row_ || code == SQLITE_DONE) return {};
  return db_util::FailureOf(db_, code, db_util::Status::Call::kStep);
}

std::string TableWalk::Text(int column) const {
  constexpr std::size_t kMost = 48;
  sqlite3_stmt* const row = statement_.get();
  const int type = sqlite3_column_type(row, column);
  if (type == SQLITE_NULL) return "NULL";
  if (type == SQLITE_INTEGER || type == SQLITE_FLOAT) return db_util::ColumnText(row, column);
  const ByteSpan bytes = BytesOf(row, column);
  const std::string_view all(static_cast<const char*>(bytes.data), bytes.size);
  const std::string rest = all.size() > kMost ? "... (" + std::to_string(all.size()) + " bytes)" : "";
  if (type == SQLITE_TEXT) return "'" + Printable(all.substr(0, kMost)) + "'" + rest;
  std::string text = "x'";
  for (const char byte : all.substr(0, kMost / 2)) {
    std::array<char, 4> digits{};
    (void)std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned char>(byte));  // fits
    text += digits.data();
  }
  return text + "'" + rest;
}

int CompareValues(const TableWalk& a, const TableWalk& b, int column) {
  const int a_type = sqlite3_column_type(a.row(), column);
  const int b_type = sqlite3_column_type(b.row(), column);
  const int rank = RankOf(a_type);
  if (rank != RankOf(b_type)) return CompareNumbers(rank, RankOf(b_type));
  if (rank == 0) return 0;
  if (rank > 1) return Compare(BytesOf(a.row(), column), BytesOf(b.row(), column));
  const sqlite3_int64 a_whole = sqlite3_column_int64(a.row(), column);
  const sqlite3_int64 b_whole = sqlite3_column_int64(b.row(), column);
  const double a_real = sqlite3_column_double(a.row(), column);
  const double b_real = sqlite3_column_double(b.row(), column);
  if (a_type == b_type)
    return a_type == SQLITE_INTEGER ? CompareNumbers(a_whole, b_whole) : CompareNumbers(a_real, b_real);
  return a_type == SQLITE_INTEGER ? CompareMixed(a_whole, b_real) : -CompareMixed(b_whole, a_real);
}

bool AreEqual(const TableWalk& a, const TableWalk& b, int column) {
  return sqlite3_column_type(a.row(), column) == sqlite3_column_type(b.row(), column) &&
         CompareValues(a, b, column) == 0;
}

}  // namespace ctl
