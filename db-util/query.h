// Reading rows of one statement.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <memory>
#include <string>

#include "db-util/status.h"

namespace db_util {

struct FinalizeStatement {
  // Its result repeats the one of the last step, which was seen there.
  void operator()(sqlite3_stmt* statement) const noexcept { (void)sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

// Runs one statement and calls `row` for each of its rows until that returns false.
Status ForEachRow(sqlite3* db, const std::string& sql, const std::function<bool(sqlite3_stmt*)>& row);

// A column as text; a NULL becomes empty text.
[[nodiscard]] std::string ColumnText(sqlite3_stmt* statement, int column);

// Reads a column that is text and has no NUL in it: other code would see the text only up to there. Returns
// false for anything else.
[[nodiscard]] bool ReadWholeText(sqlite3_stmt* statement, int column, std::string& text);
// The same, but a NULL becomes empty text.
[[nodiscard]] bool ReadWholeTextOrNull(sqlite3_stmt* statement, int column, std::string& text);

// The first column of the first row as an integer into `out`, which keeps its value when there is no row.
Status QueryInt(sqlite3* db, const std::string& sql, int& out);
Status QueryInt(sqlite3* db, const std::string& sql, sqlite3_int64& out);

}  // namespace db_util
