// Makes scripts and executes them. Nothing is logged.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

#include "db-util/status.h"
#include "logger/format.h"

namespace db_util {

// Executes all statements of `text`. A script stops at its failing statement; what ran before stays, and a
// transaction that the script began stays open.
Status Execute(sqlite3* db, const std::string& text);

// `format` with its arguments put in by SQLite's printf (%Q quotes, %q escapes). Returns false, with `out`
// unchanged, when SQLite could not make the text.
template <typename... Args>
[[nodiscard]] bool FormatSql(std::string& out, const logger::SqlFormat<Args...>& format,
                             const Args&... args) {
  const std::unique_ptr<char, decltype(&sqlite3_free)> text(
      sqlite3_mprintf(format.text(), logger::VariadicArgument(args)...), &sqlite3_free);
  if (!text) return false;
  out = text.get();
  return true;
}

}  // namespace db_util
