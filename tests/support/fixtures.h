// Databases of every version, put together from the scripts in tests/data by the rule in its README, and
// canonical texts to compare databases by.
//
// Problems of the fixtures themselves (a script that does not run, a file that cannot be written) end the
// test with a std::runtime_error.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <string>

#include "updater/framework/version.h"
#include "updater/server/registration.h"

namespace tests {

// Extra content that only exists from some version on.
struct Extra {
  const char* name;  // "": only the content that every version has
  int from;
};
inline constexpr std::array kExtras = {
    Extra{"", 2577},
    Extra{"rights", 3004},
    Extra{"activity", 3200},
    Extra{"own-rotation", 3400},
    Extra{"shared-rotation", 3400},
};

// The version with the branch that databases of that number are on.
[[nodiscard]] updater::Version VersionOf(int number);

class Fixture {
 public:
  // `uuid` is that of the volume that holds the sync folder.
  Fixture(int version, std::string uuid, std::string extra = "");

  // Writes the databases where `where` says, which may be a volume's live files or their working copies, and
  // makes the folders of the sync folder. Databases that the version does not have are not written.
  void Write(const updater::server::WorkingCopies& where) const;

 private:
  // The scripts of one database, placeholders replaced.
  [[nodiscard]] std::string Text(const std::string& script, const std::string& sync_folder) const;
  void WriteDatabase(const std::string& path, std::string sql, int stored_version) const;
  void WriteViews(const updater::server::WorkingCopies& where) const;

  int version_;
  std::string uuid_;
  std::string extra_;
};

// Databases side by side below one folder, for updaters to work on.
[[nodiscard]] updater::server::WorkingCopies PackageIn(const std::string& folder);

// Executes SQL on a database that exists.
void RunSql(const std::string& path, const std::string& sql);

// One database as text: journal mode, integrity, tables with columns, collations, indexes and triggers, and
// all rows in an order of their own. Two databases with the same text have the same layout and content.
[[nodiscard]] std::string DumpDatabase(const std::string& path);

// Every database of a package as text, by "data", "log", "user", "client", "view/<id>" and "file/<uuid>".
[[nodiscard]] std::map<std::string, std::string> DumpPackage(const updater::server::WorkingCopies& where);

// Tells the first line in which a database differs.
[[nodiscard]] ::testing::AssertionResult SamePackage(const std::map<std::string, std::string>& expected,
                                                     const std::map<std::string, std::string>& actual);

// Every file and folder below `folder` by its path from there; the bytes of a file, "folder" for a folder.
[[nodiscard]] std::map<std::string, std::string> ReadTree(const std::string& folder);

}  // namespace tests
