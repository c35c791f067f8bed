// SQLite handles, and the operations that open a database. Every connection is hardened (see hardening.h).
//
// ATTACH attaches files that are there, with Links::kTrusted; it makes none.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

#include "db-util/status.h"

namespace db_util {

struct CloseDatabase {
  // Every statement of the connection is finalized by then, so closing cannot be refused.
  void operator()(sqlite3* db) const noexcept { (void)sqlite3_close(db); }
};

// An open connection, owned. Null when not connected.
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

enum class OpenMode {
  kCreate,     // read and write, created when it does not exist, but not where a link leads to
  kReadWrite,  // read and write, must exist
  kReadOnly,   // must exist
};

enum class Links {
  kAny,      // the database may be a link, and have other names: where its owner has put it is his business
  kTrusted,  // only links on the way to it that root made: for what this program has made itself
};

// How long a connection waits for another one's lock, in milliseconds.
inline constexpr int kBusyTimeoutMs = 300000;

// Opens the database `path` into `out`. Returns 0, or -1 with `out` null: for an empty path without a
// message, otherwise after logging "StratoFolder: Open database: %s failed (error code %d)\n" to the system
// log. That the file is a database is not checked here: SQLite reads it with the first statement.
[[nodiscard]] int OpenDatabase(const std::string& path, Database& out, OpenMode mode = OpenMode::kCreate,
                               Links links = Links::kAny);

// The same without any message.
Status OpenQuietly(const std::string& path, Database& out, OpenMode mode, Links links = Links::kAny);

// For databases that nobody else has open, also not in this process: those of the connection that are used or
// attached from now on. SQLite then keeps the index of a write-ahead log on the heap. One that is mapped
// kills the process when the disk is full.
void UseAlone(sqlite3* db);

// For a working copy, which is brought to the disk with all others.
void FlushNothing(sqlite3* db);

// For a database that is thrown away after any failure: nothing that `schema` is told can be undone, and a
// statement that fails leaves it damaged. The database has no write-ahead log, see SuspendLog().
void UseNoJournal(sqlite3* db, const std::string& schema);

// Opens `path` as a new empty database that nobody else can have prepared: whatever stands there, and its
// companion files, are unlinked first, the file is made exclusively with mode 0600, and links are not
// followed. What is attached to it is used alone. Results and message as OpenDatabase.
[[nodiscard]] int OpenScratchDatabase(const std::string& path, Database& out);

}  // namespace db_util
