// The bytes of a database as one file, read without changing anything.
#pragma once

#include <sqlite3.h>

#include <string>

#include "db-util/database.h"

namespace db_util {

// What the file of a database would hold after a hot journal was rolled back and the write-ahead log was
// taken in. The files stay as they are (see OpenToLook). Of what is in journal and log at most 256 MiB are
// kept in memory; more is a failure (SQLITE_FULL).
class DatabaseImage {
 public:
  // SQLITE_NOTADB, SQLITE_CORRUPT, ... for what cannot be rolled back or is no database; SQLITE_BUSY when
  // somebody else uses it. Damage within it is not looked for.
  Status Open(const std::string& path);

  [[nodiscard]] sqlite3_int64 size() const { return size_; }
  // Bytes within the size.
  [[nodiscard]] bool Read(void* out, int length, sqlite3_int64 at) const;
  // For statements that read.
  [[nodiscard]] sqlite3* db() const { return db_.get(); }

 private:
  Database db_;
  sqlite3_file* file_ = nullptr;
  sqlite3_int64 size_ = 0;
};

}  // namespace db_util
