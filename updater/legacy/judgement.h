// Whether a database is one that the legacy chain understands, and what one of its steps has to do to it.
//
// Understood is a database whose tables, columns, indexes and configuration rows are those of 2577 or fewer,
// written in any style. Further indexes that are not unique may be there, and stay. Nothing else may.
#pragma once

#include <sqlite3.h>

#include <string>

#include "updater/legacy/layout.h"

namespace updater::legacy {

struct Judgement {
  long long version = 0;     // 0 where the database has none
  std::string refusal;       // why it is not understood; empty when it is, or is not below 2577
  std::string script;        // for the database attached under its name; empty when nothing is missing
  bool has_nodes = false;    // of a data database, whatever its version
  bool lacks_users = false;  // of a user database: the whole table is missing

  [[nodiscard]] bool IsBelow() const { return version < kLayoutVersion; }
};

// Looks at the database that is `schema` of the connection, as a whole; the script is only for the parts of
// the step. Of a database at 2577 or above, or whose version cannot be read, nothing else is judged.
[[nodiscard]] Judgement Judge(sqlite3* db, const std::string& schema, Database database, int step);

// Why two that are understood one by one cannot be so together; empty when they can.
[[nodiscard]] std::string RefusalOfBoth(const Judgement& data, const Judgement& user);

// The same as Judge() of the file at `path`, which is not changed, nor is anything made beside it.
[[nodiscard]] Judgement JudgeFile(const std::string& path, Database database, int step);

}  // namespace updater::legacy
