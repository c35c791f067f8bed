// Databases of every version, put together from the scripts in tests/data by the rule in its README, and
// canonical texts to compare databases by.
//
// Problems of the fixtures themselves (a script that does not run, a file that cannot be written) end the
// test with a std::runtime_error.
#pragma once

#include <array>
#include <map>
#include <string>
#include <utility>

#include "db-util/database.h"
#include "package/layout.h"
#include "updater/framework/version.h"

namespace tests {

inline constexpr std::array kVersions = {2577, 2603, 3004, 3200, 3300, 3400, 3450, 4000, 4060, 4100, 4150};

// Extra content and the version that it exists from; "": only the content that every version has.
inline constexpr std::array kExtras = {std::pair("", 2577), std::pair("rights", 3004),
                                       std::pair("activity", 3200), std::pair("own-rotation", 3400),
                                       std::pair("shared-rotation", 3400)};

// The version with the branch that databases of that number are on.
[[nodiscard]] updater::Version VersionOf(int number);

// Where the live databases of a package folder are.
[[nodiscard]] package::PackagePaths PackageIn(const std::string& folder);

// The paths of the databases that there are, by "data", "log", "user", "client", "view/<id>" and
// "file/<uuid>".
[[nodiscard]] std::map<std::string, std::string> DatabasesOf(const package::PackagePaths& where);

// Writes the databases where `where` says, which may be a volume's live files or their working copies, and
// makes the folders of the sync folder. Databases that the version does not have are not written. `uuid` is
// that of the volume that holds the sync folder; `extras` are names with a blank between them.
void WriteFixture(int version, const std::string& uuid, const std::string& extras,
                  const package::PackagePaths& where);

// Executes SQL on a database.
void RunSql(const std::string& path, const std::string& sql,
            db_util::OpenMode mode = db_util::OpenMode::kReadWrite);

// The same as a killed process leaves it: what it commits is in the write-ahead log only.
void RunSqlKilled(const std::string& path, const std::string& sql);

// All rows, their columns with '|' in between, each row followed by `end`.
[[nodiscard]] std::string Query(const std::string& path, const std::string& sql, const char* end = " ");

// The statements that make the tables, indexes and triggers of a database, each followed by a line break, in
// an order of their own; blanks and quotes that say nothing are left out.
[[nodiscard]] std::string SchemaOf(const std::string& path);

// Every database of a package as text, by its name in DatabasesOf(): schema, integrity, settings, and all
// rows in an order of their own. Two databases with the same text have the same layout and content.
using Dumps = std::map<std::string, std::string>;
[[nodiscard]] Dumps DumpPackage(const package::PackagePaths& where);

// Every file and folder below `folder` by its path from there; the bytes of a file, "folder" for a folder.
[[nodiscard]] std::map<std::string, std::string> ReadTree(const std::string& folder);

}  // namespace tests
