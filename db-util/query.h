// Reading rows of one statement.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <memory>
#include <string>

namespace db_util {

struct FinalizeStatement {
  // Its result repeats the one of the last step, which was seen there.
  void operator()(sqlite3_stmt* statement) const noexcept { (void)sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

// How a query ended. Callers word their own messages from it.
struct QueryResult {
  enum class Stage { kDone, kPrepare, kStep };
  Stage failed_at = Stage::kDone;  // kDone: no failure
  int code = 0;                    // SQLite's result code of the failure
  std::string message;             // SQLite's message of the failure

  [[nodiscard]] bool ok() const { return failed_at == Stage::kDone; }
};

// Runs one statement and calls `row` for each of its rows until that returns false.
[[nodiscard]] QueryResult ForEachRow(sqlite3* db, const std::string& sql,
                                     const std::function<bool(sqlite3_stmt*)>& row);

// A column as text; a NULL becomes empty text.
[[nodiscard]] std::string ColumnText(sqlite3_stmt* statement, int column);

// Reads a column that is text without a NUL, at which others would end it. Returns false for anything else.
[[nodiscard]] bool ReadWholeText(sqlite3_stmt* statement, int column, std::string& text);
// The same, but a NULL becomes empty text.
[[nodiscard]] bool ReadWholeTextOrNull(sqlite3_stmt* statement, int column, std::string& text);

// The first column of the first row as an integer into `out`, which keeps its value when there is no row.
[[nodiscard]] QueryResult QueryInt(sqlite3* db, const std::string& sql, int& out);

}  // namespace db_util
