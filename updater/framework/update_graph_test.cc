#include "updater/framework/update_graph.h"

#include "tests/support/logged_test.h"
#include "updater/framework/updater_framework.h"
#include "updater/framework/updater_log.h"

namespace {

using updater::UpdaterFramework;
using updater::Version;

const Version kOld = {"", 2577};
const Version kNext = {"master", 3200};

struct FakeUpdater : updater::AbstractUpdater {
  FakeUpdater(Version a, Version b, std::function<int()> work) : from(a), to(b), update(std::move(work)) {
    last_error_ = "reason";
  }
  int Update() override { return update(); }
  Version GetFromVersion() const override { return from; }
  Version GetToVersion() const override { return to; }

  Version from;
  Version to;
  std::function<int()> update;
};

class FrameworkTest : public tests::LoggedTest {
 protected:
  void Add(const Version& from, const Version& to, const std::string& name = "", int result = 0) {
    framework_.AddUpdater(std::make_unique<FakeUpdater>(from, to, [this, name, result] {
      journal_ += name + ";";
      return result;
    }));
  }
  // The updaters that ran, or why none did.
  std::string Run(const Version& from, const Version& to, int result = 0) {
    journal_.clear();
    EXPECT_EQ(framework_.Run(from, to), result);
    return result == 0 ? journal_ : journal_ + framework_.GetLastError();
  }

  std::string journal_;
  std::ostringstream out_;
  UpdaterFramework framework_{out_};
};

// The way that a run takes, and what it says when there is none, is asked of the whole program.
TEST_F(FrameworkTest, BreaksTiesByOrderAndNamesWhatCannotBeReached) {
  const Version end = {"master", 9};
  Add({"", 1}, {"b", 2}, "b1");
  Add({"", 1}, {"a", 2}, "a1");
  Add({"b", 2}, end, "b2");
  Add({"a", 2}, end, "a2");
  Add({"a", 2}, end, "parallel");
  // ("a", 2) is visited first only as a neighbour of the start, after ("b", 2): the front of the list is it.
  EXPECT_EQ(Run({"", 1}, end), "a1;a2;");
  EXPECT_EQ(Run({"", 1}, kNext, -1), "GraphError: Fail to find target vertex of(master, 3200) ");
  EXPECT_EQ(Run(end, {"", 1}, -1), "GraphError: UpdateGraph error: Failed to get predecessor.(, 1) ");
  Add(end, kNext, "fails", -1);
  EXPECT_EQ(Run(end, kNext, -2), "fails;Error when updating from (master, 9)  to (master, 3200) : reason");
}

TEST_F(FrameworkTest, TheLogHasTheLineThatLogs) {
  EXPECT_TRUE(updater::Check(1, "none\n") && !updater::Check(-1, "failed\n"));
  EXPECT_EQ(sink_.lines()[0].text, "Strato Folder Updater(" + std::to_string(__LINE__ - 1) + "): failed\n");
}

TEST_F(FrameworkTest, EndsTheProcessAtASelfLoop) {
  Add(kOld, kOld);
  Add(kOld, kNext);
  EXPECT_EXIT((void)framework_.Run(kOld, kNext), ::testing::ExitedWithCode(1), "BUG!");
}

}  // namespace
