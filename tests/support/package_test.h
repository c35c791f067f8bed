// What every test on a whole package has: a package in a folder of its own, one that it is compared with, and
// everything that the updaters say.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tests/support/fake_platform.h"
#include "tests/support/fixtures.h"
#include "tests/support/recording_sink.h"
#include "tests/support/temporary_folder.h"
#include "updater/server/registration.h"

namespace tests {

inline std::string UpdaterLine(const std::string& text) { return "Strato Folder Updater(N): " + text; }

class PackageTest : public ::testing::Test {
 protected:
  // Forgets the package and all that was said, and writes the databases of that version.
  void StartAt(int version, const std::string& extras = "") {
    fake_.volumes.own.uuid = uuid_;
    fake_.volumes.failing_calls.clear();
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    sink_.Clear();
    out_.str("");
    WriteFixture(version, uuid_, extras, package_);
  }

  // The databases of the fixture as text. Its sync folder is that of the package under test.
  Dumps DumpFixture(int version, const std::string& extras = "") {
    package::PackagePaths where = PackageIn(folder_ / "expected");
    where.sync_folder = package_.sync_folder;
    WriteFixture(version, uuid_, extras, where);
    return DumpPackage(where);
  }

  // The same databases; a difference is told by its lines.
  void ExpectPackage(const Dumps& expected) const {
    Dumps actual = DumpPackage(package_);
    EXPECT_EQ(actual.size(), expected.size());
    for (const auto& [name, text] : expected) EXPECT_EQ(actual[name], text) << name;
  }

  // An edge that no updater has ends the test.
  std::unique_ptr<updater::AbstractUpdater> UpdaterOf(int from, int to) {
    const updater::UpdaterContext context = {scratch_, out_, fake_.platform()};
    for (auto& updater : updater::server::CreateServerUpdaters(context, package_)) {
      if (updater->GetFromVersion() == VersionOf(from) && updater->GetToVersion() == VersionOf(to)) {
        return std::move(updater);
      }
    }
    throw std::logic_error("no updater for this edge");
  }
  int Update(int from, int to) { return UpdaterOf(from, to)->Update(); }

  [[nodiscard]] std::string View(const std::string& view) const {
    return package_.view_folder + "/" + view + "/view-db.sqlite";
  }
  // The values of those keys of the configuration of a database, in the order of the keys.
  static std::string Config(const std::string& path, const std::string& keys) {
    return Query(path,
                 "SELECT key || '=' || value FROM config_table WHERE key IN (" + keys + ") ORDER BY key;");
  }

 private:
  const TemporaryFolder temporary_;

 protected:
  // A folder name that no statement or log format may stumble over; that of the volume is no better.
  const std::filesystem::path folder_ = temporary_ / "it's 100%s %Q";
  package::PackagePaths package_ = PackageIn(folder_ / "package");
  std::string scratch_ = folder_ / "scratch.sqlite3";
  std::string uuid_ = "u'%s";
  FakePlatform fake_;
  std::ostringstream out_;
  tests::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

}  // namespace tests
