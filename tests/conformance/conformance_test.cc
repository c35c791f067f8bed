// What every updater must do, asked of all of them.
#include "tests/support/package_test.h"

namespace tests {
namespace {

struct Edge {
  int from;
  int to;
};
constexpr std::array kEdges = {Edge{2577, 3004}, Edge{2603, 3004}, Edge{2577, 2603}, Edge{3004, 3200},
                               Edge{3200, 3300}, Edge{3300, 3400}, Edge{3400, 3450}, Edge{3450, 4000},
                               Edge{4000, 4060}, Edge{4060, 4100}, Edge{4100, 4150}};

class EveryUpdater : public PackageTest, public ::testing::WithParamInterface<Edge> {};

TEST_P(EveryUpdater, MakesTheContentOfTheNextVersionOnce) {
  for (const auto& [extra, since] : kExtras) {
    if (since > GetParam().from) continue;
    SCOPED_TRACE(extra);
    StartAt(GetParam().from, extra);
    const std::string leftover = package_.sync_folder + "/new-syncfolder.sqlite";
    for (const std::string& path : {scratch_, leftover, leftover + "-wal"}) {
      std::ofstream(path) << "left by a killed run";
    }
    const Dumps expected = DumpFixture(GetParam().to, extra);
    const std::unique_ptr<updater::AbstractUpdater> updater = Updater(GetParam().to);
    EXPECT_EQ(updater->Update(), 0);
    ExpectPackage(expected);
    EXPECT_FALSE(std::filesystem::exists(scratch_));
    const std::string version = updater::ToString(VersionOf(GetParam().to));
    std::vector<std::string> lines = {UpdaterLine("Upgrade to '" + version + "' successfully\n")};
    if (GetParam().to <= 3450) lines.clear();
    EXPECT_EQ(sink_.Texts(), lines);
    EXPECT_EQ(out_.str(), lines.empty() ? "Upgrade to " + version + " successfully\n" : "");

    EXPECT_EQ(updater->Update(), -1) << "an updater is single-use";
    ExpectPackage(expected);
  }
}

TEST_P(EveryUpdater, RefusesOtherVersionsAndChangesNothing) {
  const std::string from = std::to_string(GetParam().from);
  const std::string invalid = "failed to upgrade package: invalid branch, version = ";
  const std::string mismatch = "database version mismatch: ";
  const std::string other = "INSERT OR REPLACE INTO config_table VALUES ('version', '9999')";
  const std::vector<std::string> all = {package_.data, package_.user, package_.client};
  const std::tuple<std::vector<std::string>, std::string, std::string> cases[] = {
      {all, other, invalid + "9999\n"},
      {all, "INSERT OR REPLACE INTO config_table VALUES ('branch', 'other')", invalid + from + "\n"},
      {{package_.data}, other, mismatch + "(9999, " + from + ", " + from + ")\n"},
      {{package_.user}, other, mismatch + "(" + from + ", 9999, " + from + ")\n"},
      {{package_.client}, other, mismatch + "(" + from + ", " + from + ", 9999)\n"}};
  for (const auto& [paths, sql, line] : cases) {
    SCOPED_TRACE(line);
    StartAt(GetParam().from);
    // Statistics and a log database are what 3200 to 3300 makes when it fails, too.
    if (from == "3200") RunSql(package_.data, "ANALYZE");
    if (from == "3200") RunSql(package_.log, "SELECT 1", db_util::OpenMode::kCreate);
    for (const std::string& path : paths) RunSql(path, sql);
    const Dumps before = DumpPackage(package_);
    const std::size_t files = ReadTree(root_).size();
    EXPECT_EQ(Update(GetParam().to), -1);
    EXPECT_EQ(sink_.Texts(), std::vector<std::string>{UpdaterLine(line)});
    EXPECT_EQ(out_.str(), "");
    ExpectPackage(before);
    EXPECT_EQ(ReadTree(root_).size(), files);
  }
}

INSTANTIATE_TEST_SUITE_P(All, EveryUpdater, ::testing::ValuesIn(kEdges), [](const auto& test) {
  return std::to_string(test.param.from) + "to" + std::to_string(test.param.to);
});

}  // namespace
}  // namespace tests
