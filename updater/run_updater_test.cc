#include "updater/run_updater.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "db-util/database.h"
#include "logger/recording_sink.h"
#include "tests/support/fake_platform.h"
#include "updater/service_status.h"

namespace {

namespace fs = std::filesystem;

class RecordingCheck : public updater::ConsistencyCheck {
 public:
  int Run(const updater::RunPaths& paths) override {
    ++runs;
    no_copies_left = !fs::exists(paths.data_copy) && !fs::exists(paths.user_copy);
    EXPECT_EQ(status->GetServiceStatus(status_during), 0);
    EXPECT_STREQ(sqlite3_temp_directory, paths.temporary_folder.c_str()) << "deleting records needs it too";
    return result;
  }
  updater::ServiceStatus* status = nullptr;
  int result = 0;
  int runs = 0;
  bool no_copies_left = false;
  std::string status_during;
};

class RecordingLegacyChain : public updater::legacy::LegacyChain {
 public:
  int RunStep(int number, const updater::legacy::LegacyPaths& paths) override {
    journal += std::to_string(number) + (fs::exists(paths.client) ? "+" : "-");
    return number == failing ? -1 : 0;
  }
  std::string journal;
  int failing = 0;
};

class RunUpdaterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(root_);
    for (const std::string& path : {system_.service_status, system_.upgrading_mark, system_.scratch_database,
                                    run_.data_db, run_.client_db}) {
      fs::create_directories(fs::path(path).parent_path());
    }
    std::ofstream(system_.package_enabled).flush();
    std::ofstream(system_.upgrading_mark) << "1\n";
    SetStatus("initializing");
    check_.status = &status_;
  }
  void TearDown() override { fs::remove_all(root_); }

  void SetStatus(const std::string& word) { ASSERT_EQ(status_.SetServiceStatus(word), 0); }
  void MakeDatabases(int version, const std::string& branch = "master") {
    for (const std::string& path : {run_.data_db, run_.user_db, run_.client_db}) {
      db_util::Database db;
      ASSERT_EQ(db_util::OpenDatabase(path, db), 0);
      ASSERT_EQ(db_util::ExecSql(db.get(),
                                 "CREATE TABLE config_table (key VARCHAR PRIMARY KEY, value);"
                                 "INSERT INTO config_table VALUES ('version', %d), ('branch', %Q);",
                                 version, branch),
                0);
    }
  }
  // Runs the program and returns the status it leaves; the mark must be gone.
  std::string Run(std::vector<const char*> more = {}) {
    std::vector<const char*> arguments = {volume_.c_str()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    EXPECT_EQ(updater::RunUpdater(arguments, {.paths = system_,
                                              .platform = fake_.platform(),
                                              .legacy = legacy_,
                                              .check = check_,
                                              .out = out_,
                                              .err = err_}),
              0);
    EXPECT_FALSE(fs::exists(system_.upgrading_mark));
    std::string word;
    EXPECT_EQ(status_.GetServiceStatus(word), 0);
    return word;
  }
  bool Logged(const std::string& line) const { return sink_.Count(line) == 1; }

  std::string root_ = fs::path(::testing::TempDir()) / ("run-" + std::to_string(getpid()));
  std::string volume_ = root_ + "/vol'ume %s";
  platform::SystemPaths system_ = platform::SystemPaths::Under(root_);
  updater::RunPaths run_{volume_};
  tests::FakePlatform fake_;
  updater::ServiceStatus status_{system_, fake_.state_files};
  RecordingLegacyChain legacy_;
  RecordingCheck check_;
  std::ostringstream out_;
  std::ostringstream err_;
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(RunUpdaterTest, AWrongArgumentCountTouchesNothing) {
  const updater::RunDependencies dependencies = {system_, fake_.platform(), legacy_, check_, out_, err_};
  const std::vector<const char*> three = {"a", "b", "c"};
  EXPECT_EQ(updater::RunUpdater({}, dependencies), -1);
  EXPECT_EQ(updater::RunUpdater(three, dependencies), -1);
  EXPECT_EQ(sink_.Count("updater: invalid arguments\n"), 2);
  EXPECT_TRUE(fs::exists(system_.upgrading_mark));
  std::string word;
  EXPECT_EQ(status_.GetServiceStatus(word), 0);
  EXPECT_EQ(word, "initializing");
}

TEST_F(RunUpdaterTest, RefusesAVolumeThatIsNotMounted) {
  fake_.volumes.gone.insert(volume_);
  EXPECT_EQ(Run(), "upgradefail");
  EXPECT_TRUE(Logged("updater-svr:N " + volume_ + " is not a mounted volume"));
}

TEST_F(RunUpdaterTest, AnUnexpectedStatusIsOverwrittenAndTheMarkRemoved) {
  SetStatus("done");
  EXPECT_EQ(Run(), "upgradefail");
  EXPECT_TRUE(Logged("updater-svr:N unexpected status for updater: done"));
}

TEST_F(RunUpdaterTest, SaysWhyTheMarkCannotBeMade) {
  fs::remove_all(fs::path(system_.upgrading_mark).parent_path());
  EXPECT_EQ(Run(), "upgradefail");
  EXPECT_TRUE(Logged("updater-svr:N PLIBCProcPidFileCreate: Error code = " +
                     std::to_string(fake_.state_files.PLIBCErrGet()) + ", No such file or directory (2)"));
}

TEST_F(RunUpdaterTest, WithoutADataDatabaseThereIsNothingToDo) {
  std::ofstream(run_.user_db) << "x";
  EXPECT_EQ(Run(), "done");
  EXPECT_TRUE(Logged("database is located at '" + volume_ + "'"));
  EXPECT_FALSE(fs::exists(run_.user_copy));
  EXPECT_EQ(check_.runs, 0);
}

TEST_F(RunUpdaterTest, LeavesANewerDatabaseAlone) {
  MakeDatabases(4151);
  db_util::Database daemon;
  ASSERT_EQ(db_util::OpenDatabase(run_.data_db, daemon), 0);
  ASSERT_EQ(db_util::ExecScript(daemon.get(), "PRAGMA journal_mode = WAL;"), 0);
  daemon.reset();
  EXPECT_EQ(Run(), "dbnewer");
  EXPECT_FALSE(fs::exists(run_.data_db + "-wal") || fs::exists(run_.data_db + "-shm"));
  EXPECT_TRUE(Logged("exist db is newer, exist: 4151, target: 4150"));
  EXPECT_TRUE(Logged("exist db is newer than package"));
  EXPECT_FALSE(fs::exists(run_.data_copy));
}

TEST_F(RunUpdaterTest, CountsADatabaseThatCannotBeOpenedAsNewer) {
  fs::create_directories(run_.data_db);
  EXPECT_EQ(Run(), "dbnewer");
  EXPECT_TRUE(Logged("StratoFolder: Open database: " + run_.data_db + " failed (error code 14)\n"));
}

TEST_F(RunUpdaterTest, AFileThatIsNoDatabaseCountsAsOldAndFailsLater) {
  std::ofstream(run_.data_db) << std::string(2000, 'x');
  EXPECT_EQ(Run(), "upgradefail");
  EXPECT_TRUE(Logged("sqlite3_prepare_v2: file is not a database (26)\n"));
  EXPECT_TRUE(Logged("Updater Cannot get database version"));
  EXPECT_EQ(fs::file_size(run_.data_db), 2000U);
}

TEST_F(RunUpdaterTest, ACurrentDatabaseIsCopiedMovedBackAndChecked) {
  MakeDatabases(4150);
  EXPECT_EQ(Run(), "done");
  EXPECT_EQ(out_.str(), "update from (master, 4150) to (master, 4150) \n");
  EXPECT_EQ(check_.runs, 1);
  EXPECT_EQ(check_.status_during, "checking");
  EXPECT_TRUE(check_.no_copies_left);
  EXPECT_TRUE(fs::is_directory(run_.temporary_folder)) << "SQLite's temporary files need it";
  EXPECT_EQ(sqlite3_temp_directory, nullptr);
  SetStatus("initializing");
  check_.result = -1;
  EXPECT_EQ(Run(), "upgradefail");
  EXPECT_TRUE(fs::exists(run_.data_db));
}

TEST_F(RunUpdaterTest, AnUnknownVersionFailsWithTheReasonOnStandardError) {
  MakeDatabases(3100);
  EXPECT_EQ(Run(), "upgradefail");
  const std::string reason = "GraphError: UpdateGraph: fail to find start vertex of version (master, 3100) ";
  EXPECT_EQ(err_.str(), reason + "\n");
  EXPECT_TRUE(Logged("UpdaterFramework: " + reason));
  EXPECT_TRUE(fs::exists(run_.data_copy)) << "what a failed run made stays";
}

TEST_F(RunUpdaterTest, LegacyStepsRunOnlyOnTheExactWord) {
  MakeDatabases(4150);
  EXPECT_EQ(Run({"--dont_skip"}), "done");
  EXPECT_EQ(legacy_.journal, "");
  SetStatus("initializing");
  EXPECT_EQ(Run({"--dont-skip"}), "done");
  EXPECT_EQ(legacy_.journal, "1-3-4-5-6-7+8+9+10+11+") << "there is no V2; the client copy comes before V7";
  SetStatus("initializing");
  legacy_.failing = 5;
  EXPECT_EQ(Run({"--dont-skip"}), "upgradefail");
  EXPECT_TRUE(Logged("Update V5 Fail"));
}

TEST_F(RunUpdaterTest, ACopyThatCannotBeMadeNamesBothPaths) {
  MakeDatabases(4150);
  fs::remove(run_.user_db);
  fs::create_directories(run_.user_db);
  EXPECT_EQ(Run(), "upgradefail");
  EXPECT_TRUE(Logged("cannot backup db from " + run_.user_db + " to " + run_.user_copy));
}

TEST_F(RunUpdaterTest, LookingAtTheVersionDoesNotChangeTheLiveFiles) {
  MakeDatabases(3100);
  db_util::Database daemon;  // as a killed one leaves it: rows in the log only
  ASSERT_EQ(db_util::OpenDatabase(run_.data_db, daemon), 0);
  ASSERT_EQ(db_util::ExecScript(daemon.get(), "PRAGMA journal_mode = WAL; CREATE TABLE t (a);"), 0);
  fs::copy_file(run_.data_db, root_ + "/d");
  fs::copy_file(run_.data_db + "-wal", root_ + "/w");
  daemon.reset();
  fs::copy_file(root_ + "/d", run_.data_db, fs::copy_options::overwrite_existing);
  fs::copy_file(root_ + "/w", run_.data_db + "-wal");
  const auto size = fs::file_size(run_.data_db);
  EXPECT_EQ(Run(), "upgradefail");
  EXPECT_EQ(fs::file_size(run_.data_db), size);
  EXPECT_TRUE(fs::exists(run_.data_db + "-wal"));
}

}  // namespace
