// Attaching a working copy to a connection.
#pragma once

#include <sqlite3.h>

#include <string>

namespace updater {

// Statements that follow every ATTACH: a working copy is disposable until the run is committed, so nothing is
// flushed for it. No setting leaves a trace in the file, and no log shows them.
[[nodiscard]] std::string TuneStatements(const char* schema);

// Makes an empty database with the owner and mode of `like`, to be attached: ATTACH makes none. Returns
// whether there was none; what cannot be made cannot be attached either.
bool MakeIfMissing(const std::string& path, const std::string& like);

// Attaches the database at `path` as `schema`, tuned. Returns 0 or -1 after logging the failing statement.
[[nodiscard]] int AttachDatabase(sqlite3* db, const char* schema, const std::string& path);

// "ATTACH DATABASE '<path>' AS <schema>;", `body` and "DETACH DATABASE <schema>;" as one text; empty when
// SQLite could not make it.
[[nodiscard]] std::string AttachedScript(const char* schema, const std::string& path,
                                         const std::string& body);

// Runs AttachedScript() on a database that is made if it is missing, tuned behind the ATTACH. Returns 0, or
// -1 after logging the whole script; what a failing body has attached stays attached.
[[nodiscard]] int ExecAttached(sqlite3* db, const char* schema, const std::string& path,
                               const std::string& body);

}  // namespace updater
