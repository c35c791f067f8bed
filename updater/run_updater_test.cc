// What runs of the whole program do not show: see tests/system for those.
#include "updater/run_updater.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "db/manager.h"
#include "logger/recording_sink.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fixtures.h"
#include "tests/support/temporary_folder.h"
#include "updater/database_check.h"
#include "updater/service_status.h"
#include "user-mgr/user_manager.h"

namespace {

namespace fs = std::filesystem;

class RecordingCheck : public updater::ConsistencyCheck {
 public:
  int Run(const updater::RunPaths& paths) override {
    EXPECT_FALSE(fs::exists(paths.data_copy) || fs::exists(paths.user_copy));
    EXPECT_EQ(status->GetServiceStatus(status_during), 0);
    EXPECT_STREQ(sqlite3_temp_directory, paths.temporary_folder.c_str()) << "deleting records needs it too";
    return 0;
  }
  updater::ServiceStatus* status = nullptr;
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
    for (const std::string& path :
         {system_.service_status, system_.upgrading_mark, system_.scratch_database, system_.sync_daemon_pid,
          system_.repository_move_pid, system_.user_lock}) {
      fs::create_directories(fs::path(path).parent_path());
    }
    std::ofstream(system_.package_enabled).flush();
    check_.status = &status_;
    fake_.accounts.Add("O'Brien", 1026);
    fake_.shares.shares = {{"team \"50%\"", "/volume1/team", false, {}}};
  }
  void TearDown() override {
    db::Manager::Destroy(false);
    user_mgr::UserManager::Destroy();
  }

  // Live databases of that version.
  void StartAt(int version) {
    tests::WriteFixture(version, fake_.volumes.everywhere.ext_uuid, "",
                        {.sync_folder = run_.sync_folder,
                         .data = run_.data_db,
                         .log = run_.log_db,
                         .user = run_.user_db,
                         .client = run_.client_db,
                         .view_folder = run_.view_folder,
                         .file_folder = run_.file_folder});
  }
  // Runs the program and returns the status it leaves; the mark must be gone.
  std::string Run(std::vector<const char*> more = {}) {
    EXPECT_EQ(status_.SetServiceStatus("initializing"), 0);
    more.insert(more.begin(), run_.volume.c_str());
    EXPECT_EQ(updater::RunUpdater(more, {.paths = system_,
                                         .platform = fake_.platform(),
                                         .legacy = legacy_,
                                         .check = check_,
                                         .out = out_,
                                         .err = out_}),
              0);
    EXPECT_FALSE(fs::exists(system_.upgrading_mark));
    EXPECT_EQ(sqlite3_temp_directory, nullptr);
    return Status();
  }
  std::string Status() {
    std::string word;
    EXPECT_EQ(status_.GetServiceStatus(word), 0);
    return word;
  }
  std::string StatusAfter(const std::string& word) {
    EXPECT_EQ(status_.SetServiceStatus(word), 0);
    return Status();
  }
  int Check() { return updater::DatabaseCheck(system_, fake_.platform()).Run(run_); }
  bool Logged(const std::string& line) const { return sink_.Count(line) == 1; }

  const tests::TemporaryFolder folder_;
  const platform::SystemPaths system_ = platform::SystemPaths::Under(folder_.path());
  const updater::RunPaths run_{folder_ / "vol'ume %s"};
  tests::FakePlatform fake_;
  updater::ServiceStatus status_{system_, fake_.state_files};
  RecordingLegacyChain legacy_;
  RecordingCheck check_;
  std::ostringstream out_;
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(RunUpdaterTest, LegacyStepsRunOnlyOnTheExactWordAndTheCheckAfterThePlacement) {
  StartAt(4150);
  EXPECT_EQ(Run({"--dont_skip"}), "done");
  EXPECT_EQ(legacy_.journal, "");
  EXPECT_EQ(check_.status_during, "checking");
  EXPECT_EQ(Run({"--dont-skip"}), "done");
  EXPECT_EQ(legacy_.journal, "1-3-4-5-6-7+8+9+10+11+") << "there is no V2; the client copy comes before V7";
  legacy_.failing = 5;
  check_.status_during.clear();
  EXPECT_EQ(Run({"--dont-skip"}), "upgradefail");
  EXPECT_TRUE(Logged("Update V5 Fail"));
  EXPECT_EQ(check_.status_during, "");
}

TEST_F(RunUpdaterTest, LookingAtTheVersionDoesNotChangeTheLiveFiles) {
  StartAt(4150);
  tests::RunSql(run_.data_db,
                "PRAGMA journal_mode = WAL; UPDATE config_table SET value = 4151 WHERE key = 'version';");
  EXPECT_EQ(Run(), "dbnewer");
  EXPECT_FALSE(fs::exists(run_.data_db + "-wal") || fs::exists(run_.data_db + "-shm"));
  // As a killed daemon leaves it: rows in the log only.
  db_util::Database daemon;
  ASSERT_EQ(db_util::OpenDatabase(run_.data_db, daemon), 0);
  ASSERT_EQ(db_util::ExecScript(daemon.get(), "CREATE TABLE t (a);"), 0);
  for (const char* suffix : {"", "-wal"}) fs::copy_file(run_.data_db + suffix, folder_ / "killed" + suffix);
  daemon.reset();
  for (const char* suffix : {"", "-wal"}) {
    fs::copy_file(folder_ / "killed" + suffix, run_.data_db + suffix, fs::copy_options::overwrite_existing);
  }
  EXPECT_EQ(Run(), "dbnewer");
  fs::permissions(run_.data_db, fs::perms::owner_read);  // to root a file like any other
  EXPECT_EQ(Run(), "dbnewer");
  for (const char* suffix : {"", "-wal"}) {
    EXPECT_EQ(tests::ReadFile(run_.data_db + suffix), tests::ReadFile(folder_ / "killed" + suffix));
  }
  EXPECT_FALSE(fs::exists(run_.data_db + "-shm"));
}

TEST_F(RunUpdaterTest, WhatAFailedRunMadeOfPartsThatAreNotThereIsForgotten) {
  StartAt(3200);
  tests::RunSql(run_.data_db, "INSERT INTO log_table (type, time) VALUES (1, 1);");
  fs::remove_all(run_.sync_folder + "/rm");
  EXPECT_EQ(Run(), "upgradefail");
  fs::create_directory(run_.sync_folder + "/rm");
  EXPECT_EQ(Run(), "done");
  EXPECT_EQ(tests::Query(run_.log_db, "SELECT count(*) FROM log_table;"), "1 ");
  for (const bool was_placing : {true, false}) {
    if (was_placing) folder_.Write(run_.placing_mark.substr(folder_.path().size() + 1), "");
    fs::rename(run_.view_folder, run_.view_copy);
    fs::rename(run_.file_folder, run_.file_copy);
    EXPECT_EQ(Run(), "done");
    EXPECT_EQ(fs::exists(run_.view_folder) && fs::exists(run_.file_folder), was_placing);
    EXPECT_FALSE(fs::exists(run_.placing_mark));
  }
}

TEST_F(RunUpdaterTest, AFailedUserCheckClosesTheDatabasesAndAMissingViewLeavesThemOpen) {
  StartAt(4150);
  fake_.accounts.failing.insert(1026);
  EXPECT_EQ(Check(), -1);
  EXPECT_TRUE(Logged("Failed to do initial self check on user database\n"));
  user_mgr::UserList users;
  EXPECT_LT(user_mgr::UserManager::EnumAllUser(users), 0) << "closed";
  fake_.accounts.failing.clear();

  const std::string gone = folder_ / "it's";
  fake_.volumes.gone.insert(gone);
  const std::string quoted = folder_ / "it''s";
  tests::RunSql(run_.data_db, "INSERT INTO volume_table (uuid, repo_path) VALUES ('a', '" + quoted +
                                  "'), ('b', '" + quoted + "');");
  fs::remove(run_.view_folder + "/17/view-db.sqlite");
  EXPECT_EQ(Check(), -1);
  EXPECT_TRUE(Logged("Failed to open view db with view_id 17\n"));
  std::map<std::string, std::string> volumes;
  EXPECT_EQ(db::Manager::EnumVolumeTable(volumes), 0) << "still open";
  EXPECT_EQ(volumes.size(), 3U) << "uuids not handled yet stay recorded";
  EXPECT_EQ(user_mgr::UserManager::EnumAllUser(users), 0) << "still open";
  db::Manager::Destroy(false);
  std::ofstream(run_.data_db) << std::string(2000, 'x');
  EXPECT_EQ(Check(), -1);
  EXPECT_TRUE(Logged("Failed to initialize sync folder data database\n"));
}

TEST_F(RunUpdaterTest, AStatusIsBelievedOnlyWhileItsProcessLives) {
  const pid_t child = fork();
  if (child == 0) {
    pause();
    _exit(0);
  }
  const std::pair<std::string, std::string> cases[] = {{"updating", system_.upgrading_mark},
                                                       {"checking", system_.upgrading_mark},
                                                       {"enabled", system_.sync_daemon_pid},
                                                       {"moving_db", system_.repository_move_pid}};
  for (const auto& [word, pid_file] : cases) {
    fs::remove(pid_file);
    EXPECT_EQ(StatusAfter(word), "error") << word;
    std::ofstream(pid_file) << child << "\n";
    EXPECT_EQ(StatusAfter(word), word);
  }
  kill(child, SIGKILL);
  siginfo_t info;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);  // a zombie now
  for (const auto& [word, pid_file] : cases) EXPECT_EQ(StatusAfter(word), "error") << word;
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(StatusAfter("anything"), "anything");
  EXPECT_EQ(StatusAfter(std::string(40, 'x')), std::string(31, 'x'));
  fs::remove_all(fs::path(system_.service_status).parent_path());
  EXPECT_EQ(status_.SetServiceStatus("done"), -1);
  EXPECT_EQ(sink_.Texts().back(), "[ERROR] service-ctrl(N): fail to set service statis to done");
}

}  // namespace
