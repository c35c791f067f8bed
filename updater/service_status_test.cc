#include "updater/service_status.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "logger/recording_sink.h"
#include "platform/host/host_state_files.h"

namespace {

namespace fs = std::filesystem;

class ServiceStatusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(root_);
    for (const std::string& path :
         {paths_.service_status, paths_.upgrading_mark, paths_.sync_daemon_pid, paths_.repository_move_pid}) {
      fs::create_directories(fs::path(path).parent_path());
    }
    std::ofstream(paths_.package_enabled).flush();
  }
  void TearDown() override { fs::remove_all(root_); }

  std::string Read() {
    std::string word;
    EXPECT_EQ(status_.GetServiceStatus(word), 0);
    return word;
  }
  std::string ReadStored(const std::string& word) {
    EXPECT_EQ(status_.SetServiceStatus(word), 0);
    return Read();
  }

  std::string root_ = fs::path(::testing::TempDir()) / ("status-" + std::to_string(getpid()));
  platform::SystemPaths paths_ = platform::SystemPaths::Under(root_);
  platform::host::HostStateFiles state_files_;
  updater::ServiceStatus status_{paths_, state_files_};
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(ServiceStatusTest, DisabledAndErrorAreWordsNotResults) {
  EXPECT_EQ(Read(), "disabled");
  EXPECT_EQ(sink_.Count("[ERROR] service-ctrl(N): access(" + paths_.service_status +
                        "): No such file or directory (2)\n"),
            1);
  std::ofstream(paths_.service_status) << "other=\"1\"\n";
  EXPECT_EQ(Read(), "error");
  EXPECT_EQ(ReadStored("done"), "done");
  fs::remove(paths_.package_enabled);
  sink_.Clear();
  EXPECT_EQ(Read(), "disabled");
  EXPECT_TRUE(sink_.lines().empty()) << "the status file is not looked at";
}

TEST_F(ServiceStatusTest, AWordIsBelievedOnlyWhileItsProcessLives) {
  const pid_t child = fork();
  if (child == 0) {
    pause();
    _exit(0);
  }
  const std::pair<std::string, std::string> cases[] = {{"updating", paths_.upgrading_mark},
                                                       {"checking", paths_.upgrading_mark},
                                                       {"enabled", paths_.sync_daemon_pid},
                                                       {"moving_db", paths_.repository_move_pid}};
  for (const auto& [word, pid_file] : cases) {
    fs::remove(pid_file);
    EXPECT_EQ(ReadStored(word), "error") << word;
    std::ofstream(pid_file) << child << "\n";
    EXPECT_EQ(ReadStored(word), word);
  }
  kill(child, SIGKILL);
  siginfo_t info;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);  // a zombie now
  for (const auto& [word, pid_file] : cases) EXPECT_EQ(ReadStored(word), "error") << word;
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  for (const char* word : {"initializing", "done", "upgradefail", "dbnewer", "anything"}) {
    EXPECT_EQ(ReadStored(word), word);
  }
}

TEST_F(ServiceStatusTest, CutsALongStatusAndSaysWhenItCannotBeWritten) {
  EXPECT_EQ(ReadStored(std::string(40, 'x')), std::string(31, 'x'));
  fs::remove_all(fs::path(paths_.service_status).parent_path());
  EXPECT_EQ(status_.SetServiceStatus("done"), -1);
  EXPECT_EQ(sink_.Texts().back(), "[ERROR] service-ctrl(N): fail to set service statis to done");
}

}  // namespace
