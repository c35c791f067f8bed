// What a database may make SQLite do.
//
// The databases belong to the package's service and to whoever has got hold of it, and the run is root's. A
// schema is a program: its views, triggers, defaults and generated columns run with every statement that
// touches their tables.
#pragma once

#include <sqlite3.h>

#include <chrono>

namespace db_util {

// Prepares a connection for databases of others. Their views are not read, their triggers call no functions
// but those of the package's own trigger, virtual tables are unknown, and functions that a schema can make
// run for ever do not work. Sizes and depths are limited, as is the memory of SQLite as a whole. Damaged
// pages are found where they are read. Returns SQLite's result code; what could not be limited is not to be
// used.
[[nodiscard]] int Harden(sqlite3* db);

// Bounds the statement that is prepared and runs while the object lives, on this thread: it fails with
// SQLITE_INTERRUPT, after a line in the system log, when it has used too much of the processor. Objects nest.
class WorkLimit {
 public:
  WorkLimit();  // what is allowed is enough for reading the schemas, whatever the databases hold
  ~WorkLimit();
  WorkLimit(const WorkLimit&) = delete;
  WorkLimit& operator=(const WorkLimit&) = delete;

  // To be called before the first step: from now on as much is allowed as any statement over all rows of the
  // connection's databases needs, by what they occupy before it.
  void AllowForRows(sqlite3* db);

 private:
  friend int Harden(sqlite3* db);
  // Called by SQLite while a statement of the connection runs; not 0 stops it.
  static int OnProgress(void* connection);

  WorkLimit* outer_;
  double allowed_seconds_;
  std::chrono::steady_clock::time_point unlimited_until_;
  double start_;
};

}  // namespace db_util
