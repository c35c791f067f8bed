#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "ctl/command_line.h"
#include "ctl/demo_platform.h"
#include "ctl/demo_state.h"
#include "ctl/demo_volumes.h"
#include "ctl/driver_run.h"
#include "ctl/failure_causes.h"
#include "ctl/made_folders.h"
#include "ctl/save_archive.h"
#include "ctl/volume_folder.h"
#include "package/layout.h"
#include "platform/sdk/volume_uuid.h"
#include "platform/system_paths.h"
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
  for (const auto& [folder, seed] : {std::pair("/a", "3"), {"/b", "3"}, {"/c", "4"}}) {
    ASSERT_EQ(Run({"sample", volume_ + folder, "--seed", seed}), 0);
  }
  EXPECT_EQ(Run({"diff", volume_ + "/a", volume_ + "/b"}), 0);
  EXPECT_EQ(Run({"diff", volume_ + "/a", volume_ + "/c"}), 1);
}

TEST_F(CtlTest, RunShowsTheUpgradeOfEveryVersionOrItsFailure) {
  for (auto version = tests::kVersions.rbegin(); version != tests::kVersions.rend(); ++version) {
    fs::remove_all(volume_);
    ASSERT_EQ(Run({"sample", volume_, "--from", std::to_string(*version)}), 0) << err_.str();
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
  ASSERT_EQ(Run({"sample", volume_, "--from", "4100", "--views", "1"}), 0) << err_.str();
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

// The views are split by several threads.
class Recorder : public updater::RunObserver {
 public:
  void BeginPhase(updater::Phase phase) override { journal += ctl::NameOf(phase) + std::string(" "); }
  void BeforeUpdate(const updater::AbstractUpdater& /*updater*/, updater::StepNumber step) override {
    journal += std::to_string(step.number) + "/" + std::to_string(step.of) + " ";
  }
  void AfterUpdate(const updater::AbstractUpdater& /*updater*/, int /*result*/) override {}
  void OnParts(const updater::Parts& parts) override {
    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_LE(parts.done, parts.of);
    if (parts.of > 0 && parts.done == parts.of) ++completed[parts.name];
    last = parts.of;
  }
  std::string journal;
  std::map<std::string, int> completed;
  std::size_t last = 1;
  std::mutex mutex;
};

TEST_F(CtlTest, WhoeverWatchesARunIsToldHowFarItIs) {
  ASSERT_EQ(Run({"sample", volume_, "--from", "3200", "--views", "40"}), 0);
  Recorder recorder;
  ctl::RunRecord record(&recorder);
  ctl::DemoPlatform demo(paths_.live.user, ctl::MadeUpIdentity(), {});
  ctl::MadeFolders made;
  std::string error;
  const platform::SystemPaths system = platform::SystemPaths::Under(folder_ / "state");
  ASSERT_EQ(ctl::PrepareState(system, demo.platform().state_files, made, error), 0) << error;
  ctl::RunDriver(volume_, false, system, demo.platform(), record);
  EXPECT_TRUE(record.is_done);
  EXPECT_EQ(recorder.journal, "copies updaters 1/7 2/7 3/7 4/7 5/7 6/7 7/7 placing checking ");
  EXPECT_GE(recorder.completed["view"], 4);  // split, made larger, and looked at before they are placed
  EXPECT_GE(recorder.completed["database"], 1);
  EXPECT_EQ(recorder.last, 0U);
}

TEST_F(CtlTest, RehearsalShowsWhatComesFromDatabasesAsText) {
  ASSERT_EQ(Run({"sample", volume_, "--from", "4100"}), 0);
  const std::string table = "CREATE TABLE \"<b onclick='x'>&\033[31m\nq\" (a);";
  tests::RunSql(paths_.live.ViewDatabase("4"), table);  // goes with its user
  const auto before = tests::ReadTree(volume_);
  const std::string page = folder_ / "page.html";
  const std::string kept = folder_ / "kept";
  ASSERT_EQ(Run({"rehearse", volume_, "--recorded", "--json", "--html", page, "--into", kept}), 0)
      << err_.str();
  EXPECT_EQ(tests::ReadTree(volume_), before);
  const auto document = nlohmann::json::parse(out_.str());
  EXPECT_EQ(document["after"][0]["version"], tests::kVersions.back());
  EXPECT_EQ(document["users"]["removed"][0], "left.the.company");
  EXPECT_EQ(Query(kept + "/@stratofolder/@sync/syncfolder-db.sqlite",
                  "SELECT value FROM config_table WHERE key = 'version'"),
            std::to_string(tests::kVersions.back()) + " ");
  const std::string html = tests::ReadFile(page);
  EXPECT_THAT(html, HasSubstr("view: &lt;b onclick=&#39;x&#39;&gt;&amp;\\x1B[31m\\x0Aq</td>"));
  EXPECT_EQ(html.find("<b onclick"), std::string::npos);
  ASSERT_EQ(Run({"rehearse", volume_, "--recorded"}), 0);
  EXPECT_THAT(out_.str(), HasSubstr("<b onclick='x'>&\\x1B[31m\\x0Aq"));
  EXPECT_EQ(tests::ReadTree(volume_), before);
  for (const auto& [option, value, reason] :
       {std::array{std::string("--into"), kept, std::string("is not empty")},
        {"--into", paths_.live.sync_folder + "/new", "the package's own"},
        {"--into", folder_ / "no/new", "cannot make the folder"},
        {"--into", page, "Not a directory"},
        {"--into", "", "is no path"},
        {"--html", "", "is no path"},
        {"--html", folder_.Write("no page", "text"), "is not written over"},
        {"--state", "", "is no path"},
        {"--state", folder_ / "none", "does not exist"},
        {"--html", paths_.live.user, "the package's own"},
        {"--html", folder_ / "no/page", "cannot write into"}}) {
    err_.str("");
    EXPECT_EQ(Run({"rehearse", volume_, "--recorded", option, value}), 2);
    EXPECT_THAT(err_.str(), HasSubstr(reason));
    EXPECT_EQ(tests::ReadTree(volume_), before);
  }
  // The upgrade would end in "done" and leave a view as verify would not have it.
  tests::RunSql(paths_.live.ViewDatabase("1"), "DROP TABLE temp_table");
  ASSERT_EQ(Run({"rehearse", volume_, "--recorded"}), 1);
  EXPECT_THAT(out_.str(), AllOf(HasSubstr("temp_table is missing"), HasSubstr("in \"done\"")));
}

TEST_F(CtlTest, VerifyComparesTheRowsWithThoseOfARehearsal) {
  ASSERT_EQ(Run({"sample", volume_, "--from", "3300"}), 0);
  ASSERT_EQ(Run({"rehearse", volume_, "--recorded", "--json"}), 0) << err_.str();
  const std::string text = out_.str();
  const std::string report = folder_.Write("rehearsal.json", text);
  ASSERT_EQ(Run({"run", volume_}), 0);
  EXPECT_EQ(Run({"verify", volume_, "--rehearsal", report}), 0) << out_.str();
  tests::RunSql(paths_.live.ViewDatabase("2"), "CREATE TABLE more (a); DROP TABLE temp_table;");
  tests::RunSql(paths_.live.user, "DELETE FROM user_table WHERE view_id = 1;");
  fs::rename(paths_.live.ViewFolder("3"), paths_.live.ViewFolder("9"));
  EXPECT_EQ(Run({"verify", volume_, "--rehearsal", report}), 1);
  for (const char* part : {"view 3: was there after", "view 9: was not there", "has a table more, which",
                           "has no table temp_table", "user_table has 4 rows, and had 5 rows"}) {
    EXPECT_THAT(out_.str(), HasSubstr(part));
  }
  const auto altered = [&](const char* field, const nlohmann::json& value) {
    nlohmann::json document = nlohmann::json::parse(text);
    document[field] = value;
    return document.dump();
  };
  for (const auto& [content, reason] :
       {std::array{text.substr(0, text.size() / 2), std::string("is cut short")},
        {altered("schema", "updater-ctl.status"), "is no report"},
        {altered("after", {{{"kind", 1}}}), "is no report"},
        {altered("after", nullptr), "is no report"},
        {altered("schema_version", 2), "has version 2"},
        {altered("succeeds", false), "has failed"},
        {"[]", "is no report"}}) {
    err_.str("");
    EXPECT_EQ(Run({"verify", volume_, "--rehearsal", folder_.Write("rehearsal.json", content)}), 2);
    EXPECT_THAT(err_.str(), HasSubstr(reason));
  }
}

// A process that has the database locked, as one in a transaction does.
class UsedByAnother {
 public:
  explicit UsedByAnother(const std::string& database) {
    std::array<int, 2> ready{};
    if (pipe(ready.data()) != 0 || (child_ = fork()) < 0) throw std::runtime_error("no process");
    char byte = 0;
    if (child_ == 0) {
      struct flock lock = {
          .l_type = F_WRLCK, .l_whence = SEEK_SET, .l_start = 0x40000000, .l_len = 512, .l_pid = 0};
      const int file = open(database.c_str(), O_RDWR | O_CLOEXEC);
      if (fcntl(file, F_SETLK, &lock) == 0 && write(ready[1], &byte, 1) == 1) (void)pause();
      _exit(1);
    }
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    for (const int end : ready) EXPECT_EQ(close(end), 0);
  }
  UsedByAnother(const UsedByAnother&) = delete;
  UsedByAnother& operator=(const UsedByAnother&) = delete;
  ~UsedByAnother() {
    EXPECT_EQ(kill(child_, SIGKILL), 0);
    EXPECT_EQ(waitpid(child_, nullptr, 0), child_);
  }

 private:
  pid_t child_ = -1;
};

TEST_F(CtlTest, WhatIsLockedMissingOrOldIsNotCalledDamaged) {
  ASSERT_EQ(Run({"sample", volume_, "--from", "3300"}), 0);
  EXPECT_EQ(Run({"verify", volume_}), 1);
  EXPECT_THAT(out_.str(),
              AllOf(HasSubstr("has version (master,"), Not(HasSubstr("warning")), Not(HasSubstr("missing"))));
  {
    const UsedByAnother used(paths_.live.user);
    for (const char* command : {"status", "check", "verify"}) {
      EXPECT_EQ(Run({command, volume_}), 1);
      EXPECT_THAT(out_.str(), AllOf(HasSubstr("somebody has locked"), Not(HasSubstr("from a backup"))));
    }
    EXPECT_EQ(Run({"run", volume_}), 2);
    EXPECT_THAT(err_.str(), HasSubstr("user-db.sqlite is in use by process "));
    EXPECT_EQ(Run({"rehearse", volume_, "--recorded"}), 2);
    EXPECT_THAT(err_.str(), HasSubstr("user-db.sqlite is locked"));
  }
  ASSERT_EQ(Run({"run", volume_, "--state", volume_}), 0) << err_.str();  // which may keep it
  EXPECT_EQ(Run({"verify", volume_}), 0) << out_.str();
  fs::remove(paths_.live.log), fs::remove(paths_.live.client);
  EXPECT_EQ(Run({"verify", volume_, "--json"}), 1);
  EXPECT_THAT(out_.str(), AllOf(HasSubstr(paths_.live.log), HasSubstr(paths_.live.client)));
  fs::remove(paths_.live.data);
  EXPECT_EQ(Run({"rehearse", volume_, "--recorded"}), 1) << out_.str();  // it would end in "done"
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
  refuse({"run", ""}, "'' is no path");
  refuse({"sample", ""}, "is no path");
  refuse({"sample", folder_ / "new/a", "--from", "4200"}, "4200 not in");
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
  out_.setstate(std::ios::badbit);  // a full disk
  EXPECT_EQ(Run({"plan"}), 2);
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
    const std::string line = "| `" + std::string(row.pattern) + "` | `" + std::string(row.code) + "` | " +
                             std::string(row.cause) + " | " + std::string(row.advice) + " |\n";
    EXPECT_THAT(runbook, HasSubstr(line));
  }
}

TEST_F(CtlTest, ASaveIsTheWayBackToEveryVersionAndForwardAgain) {
  const std::string old_save = folder_ / "old.tar.zst";
  const std::string new_save = folder_ / "new.tar.zst";
  const auto tree = [this] { return tests::ReadTree(paths_.package_folder); };
  for (const int version : tests::kVersions) {
    fs::remove_all(volume_), fs::remove(old_save);
    ASSERT_EQ(Run({"sample", volume_, "--from", std::to_string(version)}), 0) << err_.str();
    const fs::file_time_type time = fs::last_write_time(paths_.live.user) - std::chrono::hours(99);
    fs::last_write_time(paths_.live.user, time);
    fs::permissions(paths_.live.user, fs::perms::owner_all);
    const auto before = tree();
    ASSERT_EQ(Run({"save", volume_, old_save}), 0) << err_.str();
    EXPECT_EQ(Run({"diff", volume_, old_save}), 0) << out_.str();
    EXPECT_EQ(tree(), before);
    ASSERT_EQ(Run({"run", volume_}), 0) << out_.str();
    const auto upgraded = tree();
    const std::string save = version == tests::kVersions.front() ? new_save : folder_ / "again.tar.zst";
    fs::remove(save);
    ASSERT_EQ(Run({"save", volume_, save}), 0) << err_.str();
    fs::create_directories(paths_.live.view_folder + "/77/sign"), fs::create_directory(paths_.copies.data);
    ASSERT_EQ(Run({"restore", volume_, old_save}), 0) << err_.str();
    EXPECT_EQ(tree(), before) << version;
    EXPECT_TRUE(fs::last_write_time(paths_.live.user) == time);
    EXPECT_EQ(fs::status(paths_.live.user).permissions(), fs::perms::owner_all);
    fs::remove_all(paths_.live.view_folder + "/1"), fs::remove_all(paths_.live.file_folder);
    ASSERT_EQ(Run({"restore", volume_, save}), 0) << err_.str();
    EXPECT_EQ(tree(), upgraded) << version;
  }
}

TEST_F(CtlTest, DiffTellsWhatIsInOneOfBothOrChanged) {
  const std::string a = folder_ / "a";
  const std::string b = folder_ / "b";
  tests::RunSql(
      a,
      "CREATE TABLE k (x TEXT, y, z, PRIMARY KEY (y, x)); CREATE TABLE u (n UNIQUE, v); CREATE TABLE p (v);"
      "CREATE TABLE w (k PRIMARY KEY, v) WITHOUT ROWID; CREATE TABLE gone (v);"
      "INSERT INTO k VALUES ('a', 1, 1), ('B', 1, 2), ('c', 1.5, NULL), ('d', x'00', 'o''k' || char(27));"
      "INSERT INTO u VALUES (NULL, 1), (2, 2); INSERT INTO p VALUES (1), (2);",
      db_util::OpenMode::kCreate);
  fs::copy_file(a, b);
  EXPECT_EQ(Run({"diff", a, b}), 0) << out_.str();
  tests::RunSql(
      b,
      "DELETE FROM k WHERE x = 'B'; UPDATE k SET z = 1.0 WHERE x = 'a'; UPDATE k SET z = x'0AFF' WHERE x = 'd';"
      "INSERT INTO k VALUES ('B', '1', 2); DELETE FROM u; INSERT INTO u VALUES (2, 3), (1, NULL);"
      "INSERT INTO w VALUES (1, 1); DROP TABLE gone; CREATE INDEX i ON p (v);");
  EXPECT_EQ(Run({"diff", a, b}), 1);
  EXPECT_EQ(out_.str().substr(out_.str().find("database  ")),
            "database  ?\n  index i: only in B\n  table gone: only in A\n"
            "  k, by y, x: A 4 rows, B 4 rows\n"
            "    only in A: 1 row\n      y = 1, x = 'B'\n        z: 2\n"
            "    only in B: 1 row\n      y = '1', x = 'B'\n        z: 2\n"
            "    changed, A -> B: 2 rows\n      y = 1, x = 'a'\n        z: 1 -> 1.0\n"
            "      y = x'00', x = 'd'\n        z: 'o'k\\x1B' -> x'0aff'\n"
            "  u, by n: A 2 rows, B 2 rows\n"
            "    only in A: 1 row\n      n = NULL\n        v: 1\n"
            "    only in B: 1 row\n      n = 1\n        v: NULL\n"
            "    changed, A -> B: 1 row\n      n = 2\n        v: 2 -> 3\n"
            "  w, by k: A 0 rows, B 1 row\n    only in B: 1 row\n      k = 1\n        v: 1\n"
            "Equal: 0 of 1 database\n");
  EXPECT_EQ(Run({"diff", a, folder_ / "none"}), 2);
  EXPECT_EQ(Run({"diff", folder_.Write("c", "no database"), a}), 2);
  EXPECT_THAT(out_.str(), HasSubstr("cannot be compared: A: file is not a database"));
  const std::string key = "CREATE TABLE t (k PRIMARY KEY); INSERT INTO t VALUES ";
  const std::string row = "CREATE TABLE t (rowid, v); INSERT INTO t VALUES (2, 'a'), (1, ";
  using Case = std::array<std::string, 3>;  // in A, in B, and what is told
  for (const auto& [in_a, in_b, told] :
       {Case{key + "(5);", key + "(5.0);", "k: 5 -> 5.0"},
        Case{key + "(9007199254740993);", key + "(9007199254740992.0);", "k = 9007199254740993"},
        Case{"CREATE TABLE t (a b);", "CREATE TABLE t (ab);", "table t: differs"},
        Case{"CREATE TABLE t (a DEFAULT '\"');", "CREATE TABLE t (a DEFAULT '');", "table t: differs"},
        Case{"CREATE TABLE t ([a b]);", "CREATE TABLE t ([ab]);", "table t: differs"},
        Case{"CREATE TABLE t (a  INTEGER PRIMARY KEY AUTOINCREMENT); INSERT INTO t VALUES (1);",
             "CREATE TABLE \"t\" (a INTEGER PRIMARY KEY AUTOINCREMENT); INSERT INTO t VALUES (1);"
             "UPDATE sqlite_sequence SET seq = 7;",
             "seq: 1 -> 7"},
        Case{"CREATE TABLE sqlitex (v);", "CREATE TABLE y (v);", "table sqlitex: only in A"},
        Case{"CREATE TABLE t (v DEFAULT 'x y');", "CREATE TABLE t (v DEFAULT 'xy');", "table t: differs"},
        Case{row + "'b');", row + "'c');", "_rowid_ = 2\n        v: 'b'"},
        Case{"PRAGMA encoding = 'UTF-16le'; CREATE TABLE t (v);", key + "(1);", "texts are in UTF-16le"}}) {
    fs::remove(a), fs::remove(b);
    tests::RunSql(a, in_a, db_util::OpenMode::kCreate), tests::RunSql(b, in_b, db_util::OpenMode::kCreate);
    EXPECT_NE(Run({"diff", a, b}), 0);
    EXPECT_THAT(out_.str(), HasSubstr(told));
  }
}

// A save that has nothing but this manifest.
void WriteManifest(const std::string& path, const ctl::SaveManifest& manifest) {
  std::string error;
  ctl::SaveWriter writer;
  const base::FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  ASSERT_EQ(writer.Begin(file.get(), error), 0) << error;
  ASSERT_EQ(writer.AddText(ctl::kManifestName, ctl::FormatManifest(manifest), {}, error), 0) << error;
  ASSERT_EQ(writer.Finish(error), 0) << error;
}

TEST_F(CtlTest, SavesAndRestoresAreRefusedWithoutATrace) {
  ASSERT_EQ(Run({"sample", volume_, "--from", "4150", "--nodes", "3000"}), 0);
  const std::string good = folder_ / "good.tar.zst";
  const std::string bad = folder_ / "bad.tar.zst";
  ASSERT_EQ(Run({"save", volume_, good}), 0) << err_.str();
  const std::string bytes = tests::ReadFile(good);
  const auto refuse = [&](const std::vector<std::string>& arguments, const std::string& reason,
                          int status = 2) {
    const auto before = tests::ReadTree(folder_.path());
    err_.str("");
    EXPECT_EQ(Run(arguments), status) << reason;
    EXPECT_THAT(err_.str(), HasSubstr(reason));
    EXPECT_EQ(tests::ReadTree(folder_.path()), before) << reason;
  };
  const auto refuse_bad = [&](const std::string& reason) { refuse({"restore", volume_, bad}, reason); };
  for (const std::size_t length : {std::size_t{0}, std::size_t{9}, bytes.size() / 2, bytes.size() - 90}) {
    (void)folder_.Write("bad.tar.zst", bytes.substr(0, length));
    refuse_bad("is no save to restore");
  }
  for (std::size_t at = 99; at < bytes.size() - 99; at += bytes.size() / 9) {
    std::string altered = bytes;
    altered[at] = static_cast<char>(altered[at] ^ 1);
    (void)folder_.Write("bad.tar.zst", altered);
    const auto before = tests::ReadTree(volume_);
    EXPECT_NE(Run({"restore", volume_, bad}), 1);  // a byte between two entries is nobody's
    EXPECT_EQ(tests::ReadTree(volume_), before) << at;
  }
  ctl::SaveReader reader;
  std::string error;
  ASSERT_EQ(reader.Open(good, error), 0) << error;
  using Kind = ctl::SavedItem::Kind;
  for (const auto& [kind, path] : {std::pair(Kind::kFile, "/etc/passwd"),
                                   {Kind::kFile, "@sync/file/../x"},
                                   {Kind::kDatabase, "@sync/x"},
                                   {Kind::kFile, "@sync/file/a/file-db.sqlite-wal"},
                                   {Kind::kFolder, "@sync"},
                                   {Kind::kLink, "@sync/view/1"},
                                   {Kind::kMarker, "@sync/repo/x"},
                                   {Kind::kDatabase, "@sync/view/none/view-db.sqlite"},
                                   {Kind::kDatabase, "@sync/syncfolder-db.sqlite"}}) {
    ctl::SaveManifest manifest = reader.manifest();
    manifest.items.push_back({.kind = kind, .path = path});
    WriteManifest(bad, manifest);
    refuse_bad("it names what no save holds: " + std::string(path));
  }
  ctl::SaveManifest manifest = reader.manifest();
  WriteManifest(bad, manifest);
  refuse_bad("cut off");
  manifest.items.front().bytes = std::int64_t{1} << 47;
  WriteManifest(bad, manifest);
  refuse_bad("the restore needs 128");
  manifest.uuid = "another\n";
  WriteManifest(bad, manifest);
  refuse_bad("is a save of another volume: of " + volume_ + " with another\\x0A");
  refuse({"restore", volume_, bad, "--force-other-volume"}, "the restore needs 128");
  EXPECT_LT(ctl::ParseManifest(std::string(9, '['), manifest, error), 0);
  EXPECT_THAT(error, HasSubstr("it is no manifest"));
  EXPECT_LT(ctl::ParseManifest(std::string(ctl::kLongestManifest + 1, ' '), manifest, error), 0);
  EXPECT_THAT(error, HasSubstr("too long"));
  refuse({"restore", volume_, folder_ / "none"}, "none: No such file or directory");
  refuse({"restore", volume_, folder_.path()}, "it is no file");
  refuse({"save", volume_, good}, "is there already");
  refuse({"save", volume_, folder_ / "none/x"}, "x: No such file or directory");
  refuse({"save", volume_, ""}, "'' is no path");
  refuse({"save", volume_, paths_.live.user + "-wal"}, "is in the folder that is to be saved");

  const std::string pid = std::to_string(getpid());
  (void)folder_.Write("state/usr/plat/etc/packages/StratoFolder/stfd_upgrading_mark", pid);
  for (const std::string command : {"save", "restore"}) {
    refuse({command, volume_, command == "save" ? bad + "2" : good, "--state", folder_ / "state"},
           "an upgrade is running, process " + pid);
  }
  {
    const UsedByAnother used(paths_.live.user);
    refuse({"save", volume_, bad + "2"}, "user-db.sqlite is in use by process ");
    refuse({"restore", volume_, good}, "user-db.sqlite is in use by process ");
  }
  (void)signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small = {.rlim_cur = 1 << 14, .rlim_max = limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  refuse({"save", volume_, bad + "2"}, "File too large", 1);
  refuse({"restore", volume_, good}, "nothing was restored: cannot write ", 1);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string database = tests::ReadFile(paths_.live.user);
  fs::remove(paths_.live.user), fs::create_directory(paths_.live.user);
  refuse({"restore", volume_, good}, "nothing was restored: cannot replace " + paths_.live.user, 1);
  fs::remove(paths_.live.user), tests::WriteFile(paths_.live.user, database);
  const std::string big = paths_.live.file_folder + "/big";
  const std::string status = platform::SystemPaths::Under(folder_ / "state2").service_status;
  ASSERT_EQ(mkfifo((paths_.live.file_folder + "/pipe").c_str(), 0600), 0);
  fs::rename(paths_.live.view_folder, folder_ / "views");
  fs::create_symlink(folder_ / "views", paths_.live.view_folder);
  tests::WriteFile(big, ""), fs::resize_file(big, 1 << 28);
  const auto save_until_stopped = [&] {
    std::thread([] { (void)(usleep(50000), kill(getpid(), SIGTERM)); }).detach();
    exit(Run({"save", volume_, bad + "2"}));
  };
  EXPECT_EXIT(save_until_stopped(), testing::KilledBySignal(SIGTERM), "");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 5);
  ASSERT_EQ(Run({"save", volume_, bad + "2"}), 0) << err_.str();
  EXPECT_THAT(out_.str(), HasSubstr("pipe, a link or no database"));
  fs::create_directory(folder_ / "state2");
  std::thread upgrade([&] {
    for (int i = 0; i < 100000 && !fs::exists(paths_.copies.data); ++i) (void)usleep(1000);
    fs::create_directories(fs::path(status).parent_path()), tests::WriteFile(status, "");
  });
  EXPECT_EQ(Run({"restore", volume_, bad + "2", "--state", folder_ / "state2"}), 1);
  EXPECT_THAT(err_.str(), HasSubstr("meanwhile an upgrade was started"));
  upgrade.join();
  fs::remove(big), fs::remove(paths_.live.file_folder + "/pipe");
  // A page in its middle is damaged: it is saved as it is, and that is told.
  std::fstream(paths_.live.log, std::ios::in | std::ios::out).seekp(2 * 4096) << std::string(4096, '\xFF');
  fs::remove(bad);
  EXPECT_EQ(Run({"save", volume_, bad}), 1);
  EXPECT_THAT(out_.str(), HasSubstr("is damaged"));
  fs::resize_file(paths_.live.user, 5000), fs::remove(bad);
  refuse({"save", volume_, bad}, "user-db.sqlite: database disk image is malformed");
  (void)folder_.Write("volume/@stratofolder/@sync/.upgrade-commit", "x");
  refuse({"save", volume_, bad}, "a run was stopped while it put databases in place");
  EXPECT_EQ(Run({"restore", volume_, good}), 0) << err_.str();
  EXPECT_EQ(Query(paths_.live.user, "PRAGMA integrity_check"), "ok ");
}

}  // namespace
