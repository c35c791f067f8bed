#include "db/manager.h"
#include "tests/support/fixtures.h"
#include "tests/support/logged_test.h"

namespace {

namespace fs = std::filesystem;
using db::Manager;

// On an empty view of the last version.
class DbTest : public tests::LoggedTest {
 protected:
  void SetUp() override { tests::WriteFixture(tests::kVersions.back(), "uuid", "", package_); }
  void TearDown() override { Manager::Destroy(false); }

  void Insert(const std::string& nodes, const std::string& versions, const std::string& more) const {
    tests::RunSql(view_path_, "INSERT INTO node_table (" + kNode +
                                  ", name, path) SELECT *, '', '' FROM (VALUES " + nodes +
                                  "); INSERT INTO version_table (" + kVersion + ") VALUES " + versions + ";" +
                                  more);
  }
  // The rows of all tables that records are deleted from.
  [[nodiscard]] std::string Rows() const {
    const auto rows = [this](const std::string& query) { return tests::Query(view_path_, query) + "\n"; };
    return rows("SELECT " + kNode + " FROM node_table") + rows("SELECT " + kVersion + " FROM version_table") +
           rows("SELECT * FROM tree_table") + rows("SELECT * FROM remove_file_table");
  }
  void OpenView() {
    ASSERT_EQ(Manager::Initialize(package_.sync_folder), 0);
    ASSERT_EQ(Manager::GetViewDB(5, view_), 0);
  }

  const std::string kNode =
      "node_id, ver_cnt, v_file_uuid, v_file_id, v_mac_attr, node_delta_file_uuid, node_delta_file_id";
  const std::string kVersion = "ver_id, node_id, file_uuid, file_id, mac_attr";
  const package::PackagePaths package_ = tests::PackageIn(folder_.path());
  const std::string views_ = package_.view_folder + "/";
  const std::string view_path_ = views_ + "5/view-db.sqlite";
  std::shared_ptr<db::ViewDBInterface> view_;
};

TEST_F(DbTest, RemovesTheRowsOfOneVolumeAndNothingElse) {
  Insert(
      "(1, 3, 'U', 11, NULL, 'V', 5), (2, 3, 'V', 12, 'uuid=U&file_id=4', 'U', 6),"
      " (3, 0, NULL, 0, 'uuid=V&file_id=U', NULL, 0), (4, 1, 'V', 13, 'uuid_U&uuid', 'V', 7)",
      "(1, 1, 'U', 11, NULL), (2, 1, 'V', 20, 'xuuid=U&uuid=W&xfile_id=1&file_id=23&x'), (3, 2, 'U', 21, NULL),"
      " (4, 2, 'V', 12, 'uuid=U&file_id=4'), (5, 2, 'V', 22, 'uuid=V&file_id=9'), (6, 4, 'V', 13, NULL)",
      "INSERT INTO tree_table VALUES (1, 3, 1), (2, 3, 1), (4, 3, 1), (9, 1, 1);"
      "INSERT INTO remove_file_table VALUES ('U', 1), ('V', 2);");
  const std::string before = Rows();
  OpenView();
  ASSERT_EQ(view_->DeleteRecordWithUuid("' OR 1=1 --%s"), 0);
  EXPECT_EQ(Rows(), before);
  ASSERT_EQ(view_->DeleteRecordWithUuid("U"), 0);
  // What the trigger queued for the other volume (the removed node's second version) stays.
  EXPECT_EQ(Rows(),
            "2|2|V|12|||0 3|0||0|uuid=V&file_id=U||0 4|1|V|13|uuid_U&uuid|V|7 \n"
            "4|2|V|12| 5|2|V|22|uuid=V&file_id=9 6|4|V|13| \n2|3|1 4|3|1 \nV|2 V|20 W|23 \n");
}

TEST_F(DbTest, AFailureInTheMiddleRollsEverythingBack) {
  Insert("(1, 1, 'U', 11, '', NULL, 0)", "(1, 1, 'U', 11, NULL)",
         "CREATE TRIGGER refuse BEFORE DELETE ON node_table BEGIN SELECT RAISE(ABORT, 'no'); END;");
  const std::string before = Rows();
  OpenView();
  std::shared_ptr<db::ViewDBInterface> same_view;
  ASSERT_EQ(Manager::GetViewDB(5, same_view), 0);
  EXPECT_EQ(view_->DeleteRecordWithUuid("U"), -1);
  EXPECT_EQ(sink_.Count("[ERROR] db(N): DeleteRecordWithUuid: no (19)\n"), 1);
  Manager::Destroy(false);
  EXPECT_EQ(view_->DeleteRecordWithUuid("none"), -1) << "closed with the manager";
  EXPECT_EQ(same_view->DeleteRecordWithUuid("none"), -1) << "however often it was opened";
  EXPECT_EQ(Rows(), before);
}

TEST_F(DbTest, DeletingAViewFollowsNoLinks) {
  const std::string precious = folder_.Write("elsewhere/precious", "x");
  for (const char* link : {"5/link", "8"}) fs::create_directory_symlink(folder_ / "elsewhere", views_ + link);
  OpenView();
  for (const db::ViewId view : {5U, 8U, 1234U}) EXPECT_EQ(Manager::DeleteView(view), 0);
  EXPECT_EQ(view_->DeleteRecordWithUuid("U"), -1) << "closed before its folder went";
  EXPECT_FALSE(fs::exists(views_ + "5") || fs::is_symlink(views_ + "8"));
  EXPECT_TRUE(fs::exists(precious));
  fs::remove_all(package_.view_folder);
  tests::WriteFile(package_.view_folder, "no folder");
  EXPECT_EQ(Manager::DeleteView(9), -1);
  EXPECT_TRUE(sink_.Texts().back().ends_with("view/9): cannot be deleted: Not a directory\n"));
}

}  // namespace
