// Whole chains: every version that an upgrade can start from ends in the same databases.
#include "tests/conformance/package_test.h"

namespace tests {
namespace {

struct Start {
  int version;
  std::string extra;
};

// The content that all versions have from each of them, every extra content from its first version.
std::vector<Start> Starts() {
  std::vector<Start> starts;
  for (const int version : {2577, 2603, 3004, 3200, 3300, 3400, 3450, 4000, 4060, 4100, 4150}) {
    for (const Extra& extra : kExtras) {
      if (extra.from == version || std::string(extra.name).empty()) starts.push_back({version, extra.name});
    }
  }
  return starts;
}

class Chain : public PackageTest {
 protected:
  int RunFrom(const updater::Version& version) {
    updater::UpdaterFramework framework(out_);
    for (auto& updater : Updaters()) framework.AddUpdater(std::move(updater));
    const int result = framework.Run(version, VersionOf(4150));
    error_ = framework.GetLastError();
    return result;
  }

  std::string error_;
};

class ChainStart : public Chain, public ::testing::WithParamInterface<Start> {};

TEST_P(ChainStart, EndsInTheDatabasesOfTheLastVersion) {
  WriteFixture(GetParam().version, GetParam().extra);
  ASSERT_EQ(VersionIn(package_.data), VersionOf(GetParam().version));
  ASSERT_EQ(RunFrom(VersionOf(GetParam().version)), 0) << error_ << ::testing::PrintToString(sink_.Texts());
  EXPECT_TRUE(SamePackage(DumpFixture(4150, GetParam().extra), DumpPackage(package_)));
}

INSTANTIATE_TEST_SUITE_P(All, ChainStart, ::testing::ValuesIn(Starts()), [](const auto& test) {
  return std::to_string(test.param.version) + LabelOf(test.param.extra);
});

TEST_F(Chain, FromTheOldestVersionSaysWhatItDoesAndLeavesNothingBehind) {
  WriteFixture(2577);
  ASSERT_EQ(RunFrom(VersionOf(2577)), 0) << error_;
  EXPECT_EQ(out_.str(),
            "updating from (, 2577)  to (master, 3004) \n"
            "Upgrade to (master, 3004)  successfully\n"
            "updating from (master, 3004)  to (master, 3200) \n"
            "Upgrade to (master, 3200)  successfully\n"
            "updating from (master, 3200)  to (master, 3300) \n"
            "Upgrade to (master, 3300)  successfully\n"
            "updating from (master, 3300)  to (master, 3400) \n"
            "Upgrade to (master, 3400)  successfully\n"
            "updating from (master, 3400)  to (master, 3450) \n"
            "Upgrade to (master, 3450)  successfully\n"
            "updating from (master, 3450)  to (master, 4000) \n"
            "updating from (master, 4000)  to (master, 4060) \n"
            "updating from (master, 4060)  to (master, 4100) \n"
            "updating from (master, 4100)  to (master, 4150) \n");

  std::vector<std::string> expected = {"data.sqlite",
                                       "delta",
                                       "delta/.0",
                                       "file",
                                       "file/" + uuid(),
                                       "log.sqlite",
                                       "node_delta",
                                       "node_delta/.0",
                                       "repo",
                                       "repo/.0",
                                       "rm",
                                       "rm/delta",
                                       "rm/deref_file",
                                       "rm/file",
                                       "rm/node_delta",
                                       "rm/rotate_base",
                                       "rm/rotate_node",
                                       "user.sqlite",
                                       "view",
                                       "file/" + uuid() + "/file-db.sqlite"};
  for (const char* view : {"view/1", "view/17", "view/4294967297", "view/5"}) {
    for (const char* path : {"", "/sign", "/sign/.0", "/view-db.sqlite"})
      expected.push_back(std::string(view) + path);
  }
  std::vector<std::string> found;
  for (const auto& [path, bytes] : ReadTree(package_.sync_folder)) {
    found.push_back(path);
    if (path.ends_with("/.0")) {
      EXPECT_EQ(bytes, "") << path;
    }
  }
  EXPECT_THAT(found, ::testing::UnorderedElementsAreArray(expected));
}

TEST_F(Chain, FromAVersionThatNoUpdaterNamesChangesNothing) {
  WriteFixture(3200);
  const std::map<std::string, std::string> before = ReadTree(folder_);
  EXPECT_EQ(RunFrom({"master", 3100}), -1);
  EXPECT_EQ(error_, "GraphError: UpdateGraph: fail to find start vertex of version (master, 3100) ");
  EXPECT_EQ(out_.str(), "");
  EXPECT_EQ(ReadTree(folder_), before);
}

}  // namespace
}  // namespace tests
