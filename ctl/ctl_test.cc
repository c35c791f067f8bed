#include "ctl/command_line.h"
#include "ctl/demo_volumes.h"
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

}  // namespace
