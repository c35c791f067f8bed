// Writes many rows into a new database: one transaction, prepared statements, nothing flushed before the end.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "db-util/database.h"
#include "db-util/execute.h"
#include "db-util/query.h"

namespace ctl {

// One new database. The first failure is kept, and everything after it does nothing, so that only Finish()
// has to be looked at.
class SampleWriter {
 public:
  // Makes the database `path`, which must not exist, with the tables of `schema`.
  SampleWriter(const std::string& path, const std::string& schema);

  // Executes a script.
  void Run(const std::string& script);

  // Commits and closes. Returns 0, or -1 with what went wrong in `error`.
  [[nodiscard]] int Finish(std::string& error);

 private:
  friend class RowInserter;

  void Fail(const std::string& reason);
  [[nodiscard]] bool failed() const { return !error_.empty(); }

  std::string path_;
  db_util::Database db_;
  std::string error_;
};

// One INSERT statement of a database, run for many rows. Must not outlive its writer's Finish().
class RowInserter {
 public:
  RowInserter(SampleWriter& writer, const char* statement);

  // Values are integers, texts, or an optional text that is NULL when empty.
  template <typename... Values>
  void Add(const Values&... values) {
    if (writer_.failed()) return;
    int column = 0;
    (Bind(++column, values), ...);
    Step();
  }

 private:
  void Bind(int column, long long value);
  void Bind(int column, std::string_view value);
  void Bind(int column, const std::string& value) { Bind(column, std::string_view{value}); }
  void Bind(int column, const char* value) { Bind(column, std::string_view{value}); }
  void Bind(int column, const std::optional<std::string>& value);
  void Step();

  SampleWriter& writer_;
  db_util::Statement statement_;
};

}  // namespace ctl
