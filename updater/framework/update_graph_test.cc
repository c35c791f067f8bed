#include "updater/framework/update_graph.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

#include "db-util/database.h"
#include "updater/framework/updater_framework.h"

namespace {

using updater::AbstractUpdater;
using updater::UpdaterFramework;
using updater::Version;

const Version kOld = {"", 2577};
const Version kSide = {"hos-4.3", 2603};
const Version kJoined = {"master", 3004};
const Version kNext = {"master", 3200};

class FakeUpdater : public AbstractUpdater {
 public:
  FakeUpdater(Version from, Version to, std::string* journal, std::string name, int result)
      : from_(std::move(from)),
        to_(std::move(to)),
        journal_(journal),
        name_(std::move(name)),
        result_(result) {
    last_error_ = result_ < 0 ? "reason" : "";
  }
  int Update() override {
    *journal_ += name_ + ";";
    return result_;
  }
  Version GetFromVersion() const override { return from_; }
  Version GetToVersion() const override { return to_; }

 private:
  Version from_;
  Version to_;
  std::string* journal_;
  std::string name_;
  int result_;
};

class FrameworkTest : public ::testing::Test {
 protected:
  void Add(const Version& from, const Version& to, const std::string& name = "", int result = 0) {
    framework_.AddUpdater(std::make_unique<FakeUpdater>(from, to, &journal_, name, result));
  }
  void AddRegisteredStart() {
    Add(kOld, kJoined, "direct");
    Add(kSide, kJoined, "side2");
    Add(kOld, kSide, "side1");
    Add(kJoined, kNext, "next");
  }

  std::string journal_;
  std::ostringstream out_;
  UpdaterFramework framework_{out_};
};

TEST_F(FrameworkTest, TakesTheDirectWayAndTheSideBranchOnlyFromIt) {
  AddRegisteredStart();
  EXPECT_EQ(framework_.Run(kNext, kNext), 0);
  ASSERT_EQ(framework_.Run(kOld, kNext), 0);
  EXPECT_EQ(journal_, "direct;next;");
  journal_.clear();
  ASSERT_EQ(framework_.Run(kSide, kNext), 0);
  EXPECT_EQ(journal_, "side2;next;");
}

TEST_F(FrameworkTest, BreaksTiesByOrder) {
  const Version end = {"master", 9};
  Add({"", 1}, {"b", 2}, "b1");
  Add({"", 1}, {"a", 2}, "a1");
  Add({"b", 2}, end, "b2");
  Add({"a", 2}, end, "a2");
  Add({"a", 2}, end, "parallel");
  ASSERT_EQ(framework_.Run({"", 1}, end), 0);
  // ("a", 2) is visited first only as a neighbour of the start, after ("b", 2): the front of the list is
  // ("a", 2).
  EXPECT_EQ(journal_, "a1;a2;");
}

TEST_F(FrameworkTest, SaysWhyThereIsNoChain) {
  AddRegisteredStart();
  EXPECT_EQ(framework_.Run({"hos-4.3", 3004}, kNext), -1);
  EXPECT_EQ(framework_.GetLastError(),
            "GraphError: UpdateGraph: fail to find start vertex of version (hos-4.3, 3004) ");
  EXPECT_EQ(framework_.Run(kOld, {"master", 4150}), -1);
  EXPECT_EQ(framework_.GetLastError(), "GraphError: Fail to find target vertex of(master, 4150) ");
  EXPECT_EQ(framework_.Run(kNext, kOld), -1);
  EXPECT_EQ(framework_.GetLastError(), "GraphError: UpdateGraph error: Failed to get predecessor.(, 2577) ");
  EXPECT_EQ(out_.str() + journal_, "");
}

TEST_F(FrameworkTest, StopsAtTheUpdaterThatFails) {
  Add(kOld, kJoined, "first");
  Add(kJoined, kNext, "second", -1);
  Add(kNext, {"master", 3300}, "third");
  EXPECT_EQ(framework_.Run(kOld, {"master", 3300}), -2);
  EXPECT_EQ(journal_, "first;second;");
  EXPECT_EQ(framework_.GetLastError(), "Error when updating from (master, 3004)  to (master, 3200) : reason");
}

TEST_F(FrameworkTest, EndsTheProcessAtASelfLoop) {
  Add(kOld, kOld);
  Add(kOld, kNext);
  EXPECT_EXIT((void)framework_.Run(kOld, kNext), ::testing::ExitedWithCode(1), "BUG!");
}

TEST(GetCurrentVersion, ReadsBranchAndNumberOfAnExistingDatabase) {
  const std::string path = ::testing::TempDir() + "/current-version-" + std::to_string(getpid());
  const std::tuple<const char*, int, Version> cases[] = {
      {"INSERT INTO config_table VALUES ('branch', 'hos-4.3'), ('version', '2603abc');", 0, kSide},
      {"INSERT INTO config_table VALUES ('branch', NULL), ('version', 2577);", 0, kOld},
      {"INSERT INTO config_table VALUES ('branch', 'master');", -1, {}},
      {"INSERT INTO config_table VALUES ('version', 'abc');", -1, {}},
      {"INSERT INTO config_table VALUES ('version', '4294969873');", -1, {}},  // 2^32 + 2577
      {"DROP TABLE config_table;", -1, {}}};
  for (const auto& [sql, result, expected] : cases) {
    (void)std::remove(path.c_str());  // the first case finds none
    db_util::Database db;
    ASSERT_EQ(db_util::OpenDatabase(path, db), 0);
    ASSERT_EQ(db_util::ExecScript(db.get(), std::string("CREATE TABLE config_table (key, value);") + sql), 0);
    Version version;
    EXPECT_EQ(UpdaterFramework::GetCurrentVersion(path, version), result) << sql;
    EXPECT_EQ(version, expected) << sql;
  }
}

}  // namespace
