#include "ctl/command_line.h"
#include "ctl/demo_volumes.h"
#include "ctl/failure_causes.h"
#include "ctl/made_folders.h"
#include "ctl/volume_folder.h"
#include "package/layout.h"
#include "platform/sdk/volume_uuid.h"
#include "platform/uuid_text.h"
#include "tests/support/fixtures.h"
#include "tests/support/logged_test.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using tests::Query;

class CtlTest : public tests::LoggedTest {
 protected:
  int Run(const std::vector<std::string>& arguments) {
    std::vector<const char*> words = {"updater-ctl"};
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    out_.str("");
    return ctl::RunCommandLine(static_cast<int>(words.size()), words.data(), {out_, err_});
  }
  std::string volume_ = folder_ / "volume";
  package::VolumePaths paths_{volume_};
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(CtlTest, SampleHoldsThePromisedContentAndTouchesNothingThatIsThere) {
  ASSERT_EQ(Run({"sample", volume_, "--nodes", "100", "--versions", "250", "--views", "7"}), 0);
  EXPECT_EQ(Query(paths_.live.user, "SELECT count(DISTINCT view_id) FROM user_table"), "7 ");
  const std::string counts = "SELECT count(*), (SELECT count(*) FROM version_table) FROM node_table";
  EXPECT_EQ(Query(paths_.live.data, counts), "100|250 ");
  EXPECT_EQ(Run({"sample", volume_, "--nodes", "10"}), 1);
  EXPECT_THAT(err_.str(), HasSubstr("exists already"));
  EXPECT_EQ(Query(paths_.live.data, counts), "100|250 ");
}

TEST_F(CtlTest, RunShowsTheUpgradeOfEveryVersionOrItsFailure) {
  for (auto version = tests::kVersions.rbegin(); version != tests::kVersions.rend(); ++version) {
    fs::remove_all(volume_);
    ASSERT_EQ(Run({"sample", volume_, "--version", std::to_string(*version)}), 0) << err_.str();
    ASSERT_EQ(Run({"run", volume_}), 0) << *version << out_.str();
  }
  for (const char* part :
       {"(master, 4060)   -> (master, 4100)", "view databases: 5 (1, 2, 3, 5, 6)\n",
        "removed left.the.company",
        "content version_table                       180 -> 150                -30", "Status: done"}) {
    EXPECT_THAT(out_.str(), HasSubstr(part));
  }
  fs::remove_all(volume_);
  ASSERT_EQ(Run({"sample", volume_}), 0);
  fs::remove_all(paths_.live.sync_folder + "/delta");
  EXPECT_EQ(Run({"run", volume_}), 1);
  EXPECT_THAT(out_.str(), HasSubstr("failed to open file(" + paths_.live.sync_folder +
                                    "/delta/.0): No such file or directory\n"));
  EXPECT_THAT(out_.str(), HasSubstr("failed to create empty file"));
}

TEST_F(CtlTest, RecordedVolumesKeepTheirRecords) {
  ASSERT_EQ(Run({"sample", volume_, "--version", "4100", "--views", "1"}), 0) << err_.str();
  // As in a copy from another machine; two rows with one path, one of a volume that is not here.
  tests::RunSql(
      paths_.live.data,
      "UPDATE volume_table SET repo_path = '/volume1/@stratofolder/@sync';"
      "INSERT INTO volume_table VALUES ('a', '/volume1/@stratofolder/@sync'), ('', '/volume1/@stratofolder/@sync'), ('b', '/gone');");
  tests::RunSql(paths_.live.view_folder + "/1/view-db.sqlite", "UPDATE version_table SET file_uuid = 'b';");
  ASSERT_EQ(Run({"run", volume_}), 0) << out_.str();
  EXPECT_EQ(Query(paths_.live.data, "SELECT count(*) FROM volume_table"), "4 ");
  EXPECT_THAT(out_.str(), HasSubstr("content all tables                          647 -> 647 "));

  const platform::FileSystemUuid bytes = {1, 2, 3, 4, 5, 6, 7, 8};
  const std::string uuid = platform::PrintUuid(bytes);
  platform::memory::MemoryVolumes volumes;
  ctl::TellVolumes({platform::FileSystemType::kBtrfs, uuid, bytes},
                   {{platform::sdk::BtrfsUuidToOldForm(bytes), "/recorded"}}, volumes);
  std::string answer;
  EXPECT_EQ(platform::sdk::GetVolumeUuid(volumes, "/recorded", answer), 0);
  EXPECT_EQ(answer, uuid);
  EXPECT_EQ(platform::sdk::GetOldBtrfsUuid(volumes, "/recorded", answer), 0);
}

TEST_F(CtlTest, RefusalsSayWhyAndLeaveNothing) {
  ASSERT_EQ(Run({"sample", volume_}), 0);
  for (const char* path : {"empty", "package/@stratofolder", "sync/@stratofolder/@sync", "linked",
                           "odd/@stratofolder/@sync/syncfolder-db.sqlite"}) {
    fs::create_directories(folder_ / path);
  }
  fs::create_symlink(folder_ / "empty", folder_ / "link");
  fs::create_symlink(volume_ + "/@stratofolder", folder_ / "linked/@stratofolder");
  (void)folder_.Write("state/usr", "");
  const auto before = tests::ReadTree(folder_.path());
  const auto refuse = [&](const std::vector<std::string>& arguments, const std::string& reason) {
    err_.str("");
    EXPECT_EQ(Run(arguments), 2) << reason;
    EXPECT_THAT(err_.str(), HasSubstr(reason));
    EXPECT_EQ(tests::ReadTree(folder_.path()), before) << reason;
  };
  refuse({"run", folder_ / "none"}, "No such file or directory");
  refuse({"run", folder_ / "state/usr"}, "is no folder");
  refuse({"run", folder_ / "link"}, "empty holds no @stratofolder/@sync");
  refuse({"run", folder_ / "package/"}, "holds no @stratofolder/@sync");
  refuse({"run", folder_ / "sync"}, "syncfolder-db.sqlite: No such file");
  refuse({"run", folder_ / "odd"}, "is no file");
  refuse({"run", folder_ / "linked"}, "is reached through a link");
  for (const char* below : {"/@stratofolder", "/@stratofolder/@sync"}) {
    refuse({"run", volume_ + below}, "give the folder that holds @stratofolder: " + volume_ + "\n");
  }
  for (const std::string& state : {std::string(), std::string("/"), volume_ + "/@stratofolder/x"}) {
    refuse({"run", volume_, "--state", state}, state.empty() ? "is no path" : "the package's own");
  }
  refuse({"run", volume_, "--state", folder_ / "state"}, "cannot make the folder");
  refuse({"run", ""}, "'' is no path of a folder");
  refuse({"sample", ""}, "is no path");
  refuse({"sample", folder_ / "new/a", "--version", "4200"}, "4200 not in");
  refuse({"frob", volume_}, "unknown command 'frob'");
  base::FileDescriptor lock;
  std::string error;
  ASSERT_EQ(ctl::LockFolder(volume_, lock, error), 0);
  refuse({"run", volume_}, "another updater-ctl is at work");
  base::FileDescriptor second;
  if (ctl::MadeFolders made; made.Make(folder_ / "other", error) == 0) {
    ASSERT_EQ(ctl::LockFolder(folder_ / "other", lock, error), 0);
    EXPECT_EQ(made.MakeLocked(folder_ / "other", second, error), -1);
  }
  EXPECT_TRUE(fs::exists(folder_ / "other"));
  EXPECT_EQ(Run({"--version"}), 0);
  EXPECT_THAT(out_.str(), HasSubstr("upgrades to " + std::to_string(tests::kVersions.back())));
}

TEST_F(CtlTest, ReportTellsEveryFormOfALogAndNamesTheCause) {
  const std::string updater = "Strato Folder Updater(9): ";
  const std::string begin = "database is located at '/v'";
  const std::string outer = updater + "failed to get database versions";
  const std::string missing =
      updater + "cannot read the version of database /v/u.bak: there was no such file";
  const std::string failed =
      "UpdaterFramework: Error when updating from (master, 3300)  to (master, 3400) : ";
  const std::string upgraded = updater + "Upgrade to '(master, 4150) ' successfully";
  const std::string old = "Dec 31 23:59:59 nas updater-svr: ";
  const std::string now = "Jan  1 00:00:01 nas user.err updater-svr: ";
  const std::string iso = "<11>1 2026-11-22T07:12:01.5+01:00 nas updater-svr ";
  const auto entry = [](int second, const std::string& message) {
    return R"({"SYSLOG_IDENTIFIER":"updater-svr","_PID":"7","__REALTIME_TIMESTAMP":"17953315)" +
           std::to_string(second) + R"(000000","MESSAGE":)" + message + "}\n";
  };
  const std::string huge(3 << 20, '\xFF');
  const struct {
    std::string log;
    int status;
    std::vector<std::string> parts;
  } cases[] = {
      {"", 2, {}},
      {"Nov 22 07:12:01 nas cron: " + begin + "\n{\n\xFF\n" + huge, 2, {}},
      {old + begin + "\n" + old + begin + "#012\n" + now + outer + "\n" + now + missing +
           "#012\nJan  1 00:00:01 nas rsyslogd: lost 9 messages due to rate-limiting\n" + now + failed + "\n",
       1,
       {R"("runs_found": 2)", R"("outcome": "failed")", R"("cause": "missing-database")", R"("seconds": 2.0)",
        "9): failed to get database versions\"", "\"to\": \"(master, 3400)\"", R"("code": "lines-lost")"}},
      // A second start is no part of the run that it meets, and that one goes on behind it.
      {old + begin + "\n" + old + "updater-svr:1 unexpected status for updater: updating\n" + old + upgraded +
           "\n",
       1,
       {R"("runs_found": 2)", R"("cause": "second-run")", R"("outcome": "not-started")"}},
      {iso + "8 - - " + begin + "\n" + iso + "8 - [a@1 b=\"c\"] \xEF\xBB\xBF" + upgraded + "\n",
       0,
       {R"("process": 8)"}},
      {iso + "8 - - " + begin + "\n" + iso + "8 - - " + failed + "first\nsecond line\n" + iso +
           "9 - - updater: invalid arguments\n" + iso + "8 - - disk I/O error\n",
       1,
       {R"("cause": "invalid-arguments")"}},
      {"-- Boot 1 --\n" + entry(10, "\"" + begin + "\"") +
           entry(12, "[255,99,97,110,110,111,116,32,109,111,118,101,32]") + entry(13, "\"" + upgraded + "\""),
       1,
       {"\"volume\": \"/v\"", R"("outcome": "upgraded")", R"("code": "half-placed")", "2026-11-22T07:11:53Z",
        R"("seconds": 3.0)"}},
      {begin + "\n" + updater + huge +
           "Z: database or disk is full (13)\nthe upgrade needs about 9 bytes on the volume, 8 are free\n",
       1,
       {R"("cause": "disk-full")", R"("code": "little-space")", R"("needed_bytes": 9)", "Updater(9)"}},
      {old + begin + "\n" + old + "[ERROR] db(1): never seen: \x1B[2J\n" + old + upgraded + "\n",
       1,
       {"unknown-line"}},
      {old + begin +
           "\nDec 31 23:59:59 nas kernel: Out of memory: Killed process 7 (updater-svr) total-vm:1kB\n",
       1,
       {"\"killed\""}},
      {old + begin + "\n", 1, {R"("outcome": "untold")", "no-end-in-log"}},
  };
  for (const auto& [log, status, parts] : cases) {
    const std::string file = folder_.Write("log", log);
    EXPECT_EQ(Run({"report", "--json", file}), status) << log.substr(0, 500);
    for (const std::string& part : parts) EXPECT_THAT(out_.str(), HasSubstr(part));
    EXPECT_EQ(Run({"report", "--all", file}), status);
    EXPECT_THAT(out_.str(), Not(HasSubstr("\x1B")));
  }
  // What the companion's own run prints, among its tables.
  ASSERT_EQ(Run({"sample", volume_}), 0);
  fs::remove_all(paths_.live.sync_folder + "/delta");
  ASSERT_EQ(Run({"run", volume_}), 1);
  EXPECT_EQ(Run({"report", folder_.Write("log", out_.str())}), 1);
  EXPECT_THAT(out_.str(),
              AllOf(HasSubstr("Volume    " + volume_), HasSubstr("/delta/.0): No such"), HasSubstr("FAILED"),
                    HasSubstr("status \"upgradefail\""), HasSubstr("repo or delta")));
  EXPECT_EQ(Run({"report", folder_ / "none"}) + Run({"report", folder_.path()}), 4);
}

TEST(FailureCauses, StandInTheRunbookWordForWord) {
  const std::string runbook = tests::ReadFile(UPDATER_RUNBOOK);
  for (const ctl::FailureCause& row : ctl::AllFailureCauses()) {
    EXPECT_EQ(ctl::FindFailureCause(row.pattern, row.writer), &row) << "another row is tried before it";
    const std::string line = "| `" + std::string(row.pattern) + "` | " + std::string(row.cause) + " | " +
                             std::string(row.advice) + " |\n";
    EXPECT_THAT(runbook, HasSubstr(line));
  }
}

}  // namespace
