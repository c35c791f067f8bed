// What every test on a whole package has: a package in a folder of its own, one that it is compared with, and
// everything that the updaters say.
#pragma once

#include <memory>
#include <stdexcept>

#include "tests/support/fake_platform.h"
#include "tests/support/fixtures.h"
#include "tests/support/logged_test.h"
#include "updater/server/registration.h"

namespace tests {

inline std::string UpdaterLine(const std::string& text) { return "Strato Folder Updater(N): " + text; }

class PackageTest : public LoggedTest {
 protected:
  // Forgets the package and all that was said, and writes the databases of that version.
  void StartAt(int version, const std::string& extras = "") {
    fake_.volumes.own = FakeVolumes().own;
    fake_.volumes.own.uuid = uuid_;
    fake_.volumes.failing_calls.clear();
    std::filesystem::remove_all(root_);
    std::filesystem::create_directories(root_);
    sink_.Clear();
    out_.str("");
    WriteFixture(version_ = version, uuid_, extras, package_);
  }

  // The databases of the fixture as text. Its sync folder is that of the package under test.
  Dumps DumpFixture(int version, const std::string& extras = "") {
    package::PackagePaths where = PackageIn(root_ / "expected");
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

  // That of the version the package is at; of several the first, or the one that leads to `to`. No updater
  // ends the test.
  std::unique_ptr<updater::AbstractUpdater> Updater(int to = 0) {
    const updater::UpdaterContext context = {scratch_, out_, fake_.platform()};
    for (auto& updater : updater::server::CreateServerUpdaters(context, package_)) {
      if (updater->GetFromVersion() != VersionOf(version_)) continue;
      if (to == 0 || updater->GetToVersion() == VersionOf(to)) return std::move(updater);
    }
    throw std::logic_error("no updater for this edge");
  }
  int Update(int to = 0) { return Update(Updater(to)); }
  // As in a run between those versions.
  int UpdateAsPartOf(int start, int end) {
    std::unique_ptr<updater::AbstractUpdater> updater = Updater();
    updater->SetChain(VersionOf(start), VersionOf(end));
    return Update(std::move(updater));
  }
  int Update(const std::unique_ptr<updater::AbstractUpdater>& updater) {
    const int result = updater->Update();
    if (result == 0) version_ = updater->GetToVersion().number;
    return result;
  }

  [[nodiscard]] std::string View(const std::string& view) const { return package_.ViewDatabase(view); }
  // The values of those keys of the configuration of a database, in the order of the keys.
  static std::string Config(const std::string& path, const std::string& keys) {
    return Query(path,
                 "SELECT key || '=' || value FROM config_table WHERE key IN (" + keys + ") ORDER BY key;");
  }

  // A folder name that no statement or log format may stumble over; that of the volume is no better.
  const std::filesystem::path root_ = folder_ / "it's 100%s %Q";
  package::PackagePaths package_ = PackageIn(root_ / "package");
  std::string scratch_ = root_ / "scratch.sqlite3";
  std::string uuid_ = "u'%s";
  int version_ = 0;
  FakePlatform fake_;
  std::ostringstream out_;
};

}  // namespace tests
