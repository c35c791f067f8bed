// What runs of the whole program do not show: see tests/system for those.
#include "updater/run_updater.h"

#include <sys/wait.h>
#include <unistd.h>

#include "db/manager.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fixtures.h"
#include "tests/support/logged_test.h"
#include "updater/database_check.h"
#include "updater/service_status.h"
#include "user-mgr/user_manager.h"

namespace {

namespace fs = std::filesystem;

// Its legacy steps and its check write into a journal what they find.
class RunUpdaterTest : public tests::LoggedTest,
                       public updater::ConsistencyCheck,
                       public updater::legacy::LegacyChain {
 protected:
  int RunStep(int number, const package::VolumePaths& paths) override {
    journal_ += std::to_string(number) + (fs::exists(paths.copies.client) ? "+" : "-");
    return number == failing_step_ ? -1 : 0;
  }
  int Run(const package::VolumePaths& paths) override {
    EXPECT_FALSE(fs::exists(paths.copies.data) || fs::exists(paths.copies.user));
    EXPECT_STREQ(sqlite3_temp_directory, paths.temporary_folder.c_str()) << "deleting records needs it too";
    journal_ += Status();
    return 0;
  }
  void SetUp() override {
    for (const std::string& path :
         {system_.service_status, system_.upgrading_mark, system_.scratch_database, system_.sync_daemon_pid,
          system_.repository_move_pid, system_.user_lock}) {
      fs::create_directories(fs::path(path).parent_path());
    }
    std::ofstream(system_.package_enabled).flush();
    tests::WriteFixture(tests::kVersions.back(), fake_.volumes.own.uuid, "", run_.live);
    fake_.accounts.Add("O'Brien", 1026);
    fake_.shares.shares = {{"team \"50%\"", "/volume1/team", false, {}}};
  }
  void TearDown() override {
    db::Manager::Destroy(false);
    user_mgr::UserManager::Destroy();
  }

  // Runs the program and returns the status it leaves; the mark must be gone.
  std::string Upgrade(std::vector<const char*> more = {}) {
    EXPECT_EQ(status_.SetServiceStatus("initializing"), 0);
    more.insert(more.begin(), run_.volume.c_str());
    const updater::RunDependencies dependencies = {system_, fake_.platform(), *this, *this, out_, out_};
    EXPECT_EQ(updater::RunUpdater(more, dependencies), 0);
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

  const platform::SystemPaths system_ = platform::SystemPaths::Under(folder_.path());
  const package::VolumePaths run_{folder_ / "vol'ume %s"};
  tests::FakePlatform fake_;
  updater::ServiceStatus status_{system_, fake_.state_files};
  std::string journal_;
  int failing_step_ = 0;
  std::ostringstream out_;
};

TEST_F(RunUpdaterTest, LegacyStepsRunOnlyOnTheExactWordAndTheCheckAfterThePlacement) {
  EXPECT_EQ(Upgrade({"--dont_skip"}), "done");
  EXPECT_EQ(Upgrade({"--dont-skip"}), "done");
  failing_step_ = 5;
  EXPECT_EQ(Upgrade({"--dont-skip"}), "upgradefail");
  EXPECT_EQ(journal_, "checking1-3-4-5-6-7+8+9+10+11+checking1-3-4-5-")
      << "there is no V2; the client copy comes before V7";
  EXPECT_EQ(sink_.Count("Update V5 Fail"), 1);
}

TEST_F(RunUpdaterTest, ACheckThatCannotAskRemovesNothing) {
  tests::RunSql(run_.live.data, "INSERT INTO volume_table (uuid, repo_path) VALUES ('a', '/gone');");
  for (const char* call : {"GetShareBinPath", "GetFileSystemType", "GetExtUuid"}) {
    fake_.volumes.failing_calls = {call};
    EXPECT_EQ(Check(), -1);
    EXPECT_EQ(sink_.Count("Delete uuid a from Stratofolder DB\n"), 0) << call;
  }
  for (const auto& [path, name] : {std::pair(run_.live.user, "user"), {run_.live.data, "data"}}) {
    std::ofstream(path) << std::string(2000, 'x');
    EXPECT_EQ(Check(), -1);
    EXPECT_EQ(sink_.Texts().back(), std::string("Failed to initialize sync folder ") + name + " database\n");
  }
}

TEST_F(RunUpdaterTest, AStatusIsBelievedOnlyWhileItsProcessLives) {
  const pid_t child = fork();
  if (child == 0) _exit(pause());
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
  fs::remove_all(fs::path(system_.service_status).parent_path());
  EXPECT_EQ(status_.SetServiceStatus("done"), -1);
  EXPECT_EQ(sink_.Texts().back(), "[ERROR] service-ctrl(N): fail to set service statis to done");
}

}  // namespace
