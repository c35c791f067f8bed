// A manager on a real database file in a folder of its own, on a machine that the test sets up.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "db-util/database.h"
#include "db-util/query.h"
#include "logger/recording_sink.h"
#include "tests/support/fake_platform.h"
#include "user-mgr/user_manager.h"

namespace user_mgr {

class UserManagerFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::path(::testing::TempDir()) / ("user-mgr-" + std::to_string(getpid()));
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    UserManager::Configure(machine_.platform(), Path("lock"));
  }
  void TearDown() override {
    UserManager::Destroy();
    std::filesystem::remove_all(folder_);
  }

  std::string Path(const std::string& name) const { return (folder_ / name).string(); }
  std::string File() const { return Path("user-db.sqlite"); }

  // Both on a connection of their own, as another program would see the file.
  void Write(const std::string& sql) const {
    db_util::Database db;
    ASSERT_EQ(db_util::OpenDatabase(File(), db), 0);
    ASSERT_EQ(db_util::ExecScript(db.get(), sql), 0) << sql;
  }
  // The rows of a query in one line: columns joined by "|", rows by ",".
  std::string Read(const std::string& sql) const {
    db_util::Database db;
    EXPECT_EQ(db_util::OpenDatabase(File(), db), 0);
    std::string line;
    EXPECT_TRUE(db_util::ForEachRow(db.get(), sql,
                                    [&line](sqlite3_stmt* row) {
                                      if (!line.empty()) line += ',';
                                      for (int i = 0; i < sqlite3_column_count(row); ++i) {
                                        line += (i == 0 ? "" : "|") + db_util::ColumnText(row, i);
                                      }
                                      return true;
                                    })
                    .ok())
        << sql;
    return line;
  }

  std::filesystem::path folder_;
  tests::FakePlatform machine_;
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

}  // namespace user_mgr
