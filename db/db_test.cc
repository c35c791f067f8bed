#include <gtest/gtest.h>

#include <filesystem>

#include "db/manager.h"
#include "tests/support/fixtures.h"
#include "tests/support/recording_sink.h"
#include "tests/support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using db::Manager;

// Only what the manager reads and writes, and no index at all.
constexpr const char* kViewSchema = R"(
CREATE TABLE config_table (key VARCHAR PRIMARY KEY, value VARCHAR);
INSERT INTO config_table VALUES ('version', '4150');
CREATE TABLE node_table (node_id INTEGER PRIMARY KEY, ver_cnt INTEGER, v_file_uuid TEXT, v_file_id INTEGER,
  v_mac_attr BLOB, node_delta_file_uuid TEXT, node_delta_file_id INTEGER);
CREATE TABLE version_table (ver_id INTEGER PRIMARY KEY, node_id INTEGER, file_uuid TEXT, file_id INTEGER, mac_attr BLOB);
CREATE TABLE tree_table (node_id INTEGER, parent_id INTEGER, distance INTEGER);
CREATE TABLE remove_file_table (uuid VARCHAR, file_id INTEGER);
CREATE TRIGGER version_delete_trigger AFTER DELETE ON version_table FOR EACH ROW BEGIN
  INSERT INTO remove_file_table SELECT OLD.file_uuid, OLD.file_id WHERE OLD.file_uuid != '' AND OLD.file_id != 0;
  INSERT INTO remove_file_table SELECT get_mac_attr_uuid(OLD.mac_attr), get_mac_attr_file_id(OLD.mac_attr)
    WHERE get_mac_attr_uuid(OLD.mac_attr) != '' AND get_mac_attr_file_id(OLD.mac_attr) != 0;
END;)";

class DbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tests::RunSql(folder_.Write("syncfolder-db.sqlite", ""),
                  "CREATE TABLE config_table (key, value); INSERT INTO config_table VALUES ('version', 4150);"
                  "CREATE TABLE volume_table (uuid VARCHAR PRIMARY KEY, repo_path VARCHAR);");
    tests::RunSql(view_path_, kViewSchema);
  }
  void TearDown() override { Manager::Destroy(false); }

  // The rows of all tables that records are deleted from.
  [[nodiscard]] std::string Rows() const {
    std::string rows;
    for (const char* table : {"node_table", "version_table", "tree_table", "remove_file_table"}) {
      rows += tests::Query(view_path_, std::string("SELECT * FROM ") + table) + "\n";
    }
    return rows;
  }
  void OpenView() {
    ASSERT_EQ(Manager::Initialize(folder_.path()), 0);
    ASSERT_EQ(Manager::GetViewDB(7, view_), 0);
  }

  tests::TemporaryFolder folder_;
  std::string view_path_ = folder_.Write("view/7/view-db.sqlite", "");
  std::shared_ptr<db::ViewDBInterface> view_;
  tests::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(DbTest, RemovesTheRowsOfOneVolumeAndNothingElse) {
  tests::RunSql(
      view_path_,
      "INSERT INTO node_table VALUES (1, 3, 'U', 11, NULL, 'V', 5), (2, 3, 'V', 12, 'uuid=U&file_id=4', 'U', 6),"
      " (3, 0, NULL, 0, 'uuid=V&file_id=U', NULL, 0), (4, 1, 'V', 13, 'uuid_U&uuid', 'V', 7);"
      "INSERT INTO version_table VALUES (1, 1, 'U', 11, NULL), (2, 1, 'V', 20, 'xuuid=U&uuid=W&xfile_id=1&file_id=23&x'), (3, 2, 'U', 21, NULL),"
      " (4, 2, 'V', 12, 'uuid=U&file_id=4'), (5, 2, 'V', 22, 'uuid=V&file_id=9'), (6, 4, 'V', 13, NULL);"
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
  tests::RunSql(view_path_,
                "INSERT INTO node_table VALUES (1, 1, 'U', 11, '', NULL, 0);"
                "INSERT INTO version_table VALUES (1, 1, 'U', 11, NULL);"
                "CREATE TRIGGER refuse BEFORE DELETE ON node_table BEGIN SELECT RAISE(ABORT, 'no'); END;");
  const std::string before = Rows();
  OpenView();
  std::shared_ptr<db::ViewDBInterface> same_view;
  ASSERT_EQ(Manager::GetViewDB(7, same_view), 0);
  EXPECT_EQ(view_->DeleteRecordWithUuid("U"), -1);
  EXPECT_EQ(sink_.Count("[ERROR] db(N): DeleteRecordWithUuid: no (19)\n"), 1);
  Manager::Destroy(false);
  EXPECT_EQ(view_->DeleteRecordWithUuid("none"), -1) << "closed with the manager";
  EXPECT_EQ(same_view->DeleteRecordWithUuid("none"), -1) << "however often it was opened";
  EXPECT_EQ(Rows(), before);
}

TEST_F(DbTest, DeletingAViewFollowsNoLinks) {
  folder_.Write("elsewhere/precious", "x");
  fs::create_directory_symlink(folder_ / "elsewhere", folder_ / "view/7/link");
  fs::create_directory_symlink(folder_ / "elsewhere", folder_ / "view/8");
  OpenView();
  for (const db::ViewId view : {7U, 8U, 1234U}) EXPECT_EQ(Manager::DeleteView(view), 0);
  EXPECT_EQ(view_->DeleteRecordWithUuid("U"), -1) << "closed before its folder went";
  EXPECT_TRUE(fs::is_empty(folder_ / "view"));
  EXPECT_TRUE(fs::exists(folder_ / "elsewhere/precious"));
  fs::remove(folder_ / "view");
  folder_.Write("view", "no folder");
  EXPECT_EQ(Manager::DeleteView(9), -1);
  EXPECT_TRUE(sink_.Texts().back().ends_with("view/9): cannot be deleted: Not a directory\n"));
}

}  // namespace
