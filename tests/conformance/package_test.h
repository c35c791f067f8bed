// What every test on a whole package has: a package in a folder of its own, one that it is compared with, and
// everything that the updaters say.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "logger/recording_sink.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fixtures.h"
#include "updater/framework/updater_framework.h"
#include "updater/server/registration.h"

namespace tests {

// What a test with that extra content has at the end of its name: "_own_rotation".
inline std::string LabelOf(const std::string& extra) {
  std::string label = extra.empty() ? "" : "_" + extra;
  std::replace(label.begin(), label.end(), '-', '_');
  return label;
}

class PackageTest : public ::testing::Test {
 protected:
  using Dumps = std::map<std::string, std::string>;

  void SetUp() override { StartAnew(); }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  void StartAnew() {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    sink_.Clear();
    out_.str("");
  }

  void WriteFixture(int version, const std::string& extra = "") {
    Fixture(version, uuid(), extra).Write(package_);
  }

  // The databases of the fixture as text. Its sync folder is that of the package under test.
  Dumps DumpFixture(int version, const std::string& extra = "") {
    return DumpFixture(version, extra, uuid());
  }
  Dumps DumpFixture(int version, const std::string& extra, const std::string& uuid) {
    updater::server::WorkingCopies where = PackageIn(folder_ / "expected");
    where.sync_folder = package_.sync_folder;
    Fixture(version, uuid, extra).Write(where);
    return DumpPackage(where);
  }

  std::vector<std::unique_ptr<updater::AbstractUpdater>> Updaters() {
    return updater::server::CreateServerUpdaters({scratch_, out_, fake_.platform()}, package_);
  }
  // An edge that no updater has ends the test.
  std::unique_ptr<updater::AbstractUpdater> UpdaterOf(int from, int to) {
    for (std::unique_ptr<updater::AbstractUpdater>& updater : Updaters()) {
      if (updater->GetFromVersion() == VersionOf(from) && updater->GetToVersion() == VersionOf(to)) {
        return std::move(updater);
      }
    }
    throw std::logic_error("no updater for this edge");
  }

  // The version that a database says it has; a default one when it says none.
  [[nodiscard]] static updater::Version VersionIn(const std::string& path) {
    updater::Version version;
    EXPECT_EQ(updater::UpdaterFramework::GetCurrentVersion(path, version), 0) << path;
    return version;
  }

  [[nodiscard]] const std::string& uuid() const { return fake_.volumes.everywhere.ext_uuid; }

  // A folder name that no statement or log format may stumble over.
  std::filesystem::path folder_ =
      std::filesystem::path(::testing::TempDir()) / ("it's 100%s-" + std::to_string(getpid()));
  updater::server::WorkingCopies package_ = PackageIn(folder_ / "package");
  std::string scratch_ = folder_ / "scratch.sqlite3";
  FakePlatform fake_;
  std::ostringstream out_;
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

}  // namespace tests
