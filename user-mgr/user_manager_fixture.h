// A manager on a real database file in a folder of its own, on a machine that the test sets up.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/fake_platform.h"
#include "tests/support/fixtures.h"
#include "tests/support/line_recorder.h"
#include "tests/support/temporary_folder.h"
#include "user-mgr/user_manager.h"

namespace user_mgr {

class UserManagerFixture : public ::testing::Test {
 protected:
  void SetUp() override { UserManager::Configure(machine_.platform(), Path("lock")); }
  void TearDown() override { UserManager::Destroy(); }

  std::string Path(const std::string& name) const { return folder_ / name; }
  std::string File() const { return Path("user-db.sqlite"); }

  // Both on a connection of their own, as another program would see the file.
  void Write(const std::string& sql) const { tests::RunSql(File(), sql, db_util::OpenMode::kCreate); }
  // The rows of a query in one line: columns joined by "|", each row followed by ",".
  std::string Read(const std::string& sql) const { return tests::Query(File(), sql, ","); }

  tests::TemporaryFolder folder_;
  tests::FakePlatform machine_;
  tests::LineRecorder sink_;
  logger::ScopedSink scope_{sink_};
};

}  // namespace user_mgr
