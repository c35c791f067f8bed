// Attaching a working copy to a connection.
#pragma once

#include <sqlite3.h>

#include <string>

#include "db-util/database.h"
#include "db-util/status.h"

namespace updater {

// The page cache of data_db, in KiB: a sixteenth of the machine's memory, but no more than pays. What memory
// a run takes grows with it, as the other caches are parts of it.
[[nodiscard]] int DataCacheKiB();

// Makes the most of a working copy being disposable until the run is committed: nothing is flushed for it,
// and nothing is kept to undo what fails, unless the database has a log in use. No setting leaves a trace in
// the file.
db_util::Status Tune(sqlite3* db, const char* schema);

// Opens a database in memory, tuned, to attach working copies to that nobody else has open. No message.
db_util::Status OpenEmpty(db_util::Database& out);

// The same with the data database at `path` attached as data_db, for a thread with a share of the caches.
// Several may read it at the same time where it has no log in use.
db_util::Status OpenReader(const std::string& path, int cache_kib, db_util::Database& out);

// Makes an empty database with the owner and mode of `like`, to be attached: ATTACH makes none. Returns
// whether there was none; what cannot be made cannot be attached either.
bool MakeIfMissing(const std::string& path, const std::string& like);

// "ATTACH DATABASE '<path>' AS <schema>;"; empty when SQLite could not make it.
[[nodiscard]] std::string AttachStatement(const char* schema, const std::string& path);

// Attaches the database at `path` as `schema`, tuned, its log suspended. No message.
db_util::Status AttachQuietly(sqlite3* db, const char* schema, const std::string& path);

// The same. Returns 0, or -1 after logging the failing statement.
[[nodiscard]] int AttachDatabase(sqlite3* db, const char* schema, const std::string& path);

// The statement above, `body` and "DETACH DATABASE <schema>;" as one text, as the log shows them.
[[nodiscard]] std::string AttachedScript(const char* schema, const std::string& path,
                                         const std::string& body);

// Attaches a database, which is made if it is missing, runs `body`, and detaches. What a failing body has
// attached stays attached. No message.
db_util::Status ExecAttachedQuietly(sqlite3* db, const char* schema, const std::string& path,
                                    const std::string& body);

// The same. Returns 0, or -1 after logging the whole script.
[[nodiscard]] int ExecAttached(sqlite3* db, const char* schema, const std::string& path,
                               const std::string& body);

}  // namespace updater
