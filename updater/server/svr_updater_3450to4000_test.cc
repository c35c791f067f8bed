#include "updater/server/split_fixture.h"

namespace {

namespace fs = std::filesystem;
using updater::server::SvrUpdater3450to4000;

constexpr const char* kOldForm = "03020100-0504-0706-0809-0a0b0c0d0e0f";
constexpr const char* kNewForm = "00010203-0405-0607-0809-0a0b0c0d0e0f";

class SvrUpdater3450to4000Test : public tests::SplitTest {
 protected:
  // As a volume was stored before the new form: the split itself stores that one already.
  void ReachOnBtrfs(const std::string& stored_uuid) {
    fake_.volumes.everywhere.type = platform::FileSystemType::kBtrfs;
    Reach(3450);
    Exec(data_, "UPDATE volume_table SET uuid = '" + stored_uuid + "';");
    if (stored_uuid != kNewForm) fs::rename(file_ + "/" + kNewForm, file_ + "/" + stored_uuid);
    const std::string rename = "'" + std::string(kNewForm) + "', '" + stored_uuid + "')";
    std::string script;
    ASSERT_TRUE(db_util::FormatSql(
        script,
        "UPDATE node_table SET v_file_uuid = replace(v_file_uuid, %s, "
        "node_delta_file_uuid = replace(node_delta_file_uuid, %s, v_mac_attr = replace(v_mac_attr, %s;"
        "UPDATE version_table SET file_uuid = replace(file_uuid, %s, mac_attr = replace(mac_attr, %s || %Q;",
        rename, rename, rename, rename, rename, "&again=" + stored_uuid));
    for (const char* view : {"1", "2"}) Exec(View(view), script);
    sink_.Clear();
  }
  // How many values of the views hold the uuid.
  [[nodiscard]] std::string Holding(const std::string& uuid) const {
    std::string query;
    EXPECT_TRUE(
        db_util::FormatSql(query,
                           "SELECT (SELECT total(v_file_uuid = %Q) + total(node_delta_file_uuid = %Q) + "
                           "total(v_mac_attr LIKE '%%%q%%') FROM node_table) + total(file_uuid = %Q) + "
                           "total(mac_attr = 'uuid=%q&x=1&again=%q') FROM version_table;",
                           uuid, uuid, uuid, uuid, uuid, uuid));
    return Column(View("1"), query) + Column(View("2"), query);
  }
};

TEST_F(SvrUpdater3450to4000Test, RotationMovesAndTheLastUserViewDecidesTheSharedRow) {
  Exec(user_, "INSERT INTO user_table VALUES (3, 'bob', 1027, 0, 3, 0);");
  Reach(3450);
  Exec(View("1"), "UPDATE config_table SET value = '3' WHERE key = 'rotate_cnt';");
  Exec(View("2"), "UPDATE config_table SET value = '7' WHERE key = 'rotate_cnt';");
  Exec(View("3"), "UPDATE config_table SET value = '1' WHERE key = 'remove_repo';");
  fake_.app_privilege.refused = {"alice"};
  ASSERT_EQ(Run<SvrUpdater3450to4000>(), 0);
  EXPECT_EQ(Column(user_, "SELECT view_id || '-' || rotate_cnt || rotate_policy FROM rotate_setting_table;"),
            "0-0fifo 2-7fifo ");
  EXPECT_EQ(Config(View("3"), "'rotate_cnt','remove_repo','version'"), "rotate_cnt=0 version=4000 ");
  EXPECT_EQ(Config(data_, "'rotate_cnt','remove_repo'"), "");
  EXPECT_EQ(Column(user_, "SELECT profile_id || '-' || user_id FROM profile_apply_table;"), "4-1026 ");
  EXPECT_EQ(Column(View("2"),
                   "SELECT name FROM sqlite_master WHERE name IN "
                   "('remove_file_table', 'tree_table_node_parent_index') ORDER BY name;"),
            "remove_file_table tree_table_node_parent_index ");
  // A refusal is logged and no failure; shares are not asked for.
  EXPECT_EQ(sink_.Count("[ERROR] sdk-impl-6-0(N): Fail to allow user 'alice'\n"), 1);
  EXPECT_EQ(fake_.app_privilege.allowed,
            (std::vector<std::pair<std::string, std::string>>{{"bob", "PLAT.HDS.STFD.Instance"}}));
  EXPECT_TRUE(Logged("Upgrade to '(master, 4000) ' successfully\n"));
}

TEST_F(SvrUpdater3450to4000Test, WithoutViewsTheSharedRowComesFromTheSettings) {
  Exec(user_, "DELETE FROM user_table;");
  Reach(3450);
  fs::copy(folder_, folder_ + ".custom", fs::copy_options::recursive);
  Exec(data_, "UPDATE config_table SET value = '1' WHERE key = 'remove_repo';");
  ASSERT_EQ(Run<SvrUpdater3450to4000>(), 0);
  EXPECT_EQ(Column(user_, "SELECT rotate_cnt FROM rotate_setting_table;"), "0 ");
  fs::remove_all(folder_);
  fs::rename(folder_ + ".custom", folder_);
  Exec(user_, "INSERT INTO customized_rotate_cnt_table VALUES (0, 12);");
  ASSERT_EQ(Run<SvrUpdater3450to4000>(), 0);
  EXPECT_EQ(Column(user_, "SELECT rotate_cnt FROM rotate_setting_table;"), "12 ");
}

TEST_F(SvrUpdater3450to4000Test, OldFormOfABtrfsUuidIsRenamedEverywhere) {
  ReachOnBtrfs(kOldForm);
  ASSERT_EQ(Holding(kOldForm), "6.0 2.0 ");
  ASSERT_EQ(Run<SvrUpdater3450to4000>(), 0);
  EXPECT_EQ(Holding(kOldForm), "0.0 0.0 ");
  EXPECT_EQ(Holding(kNewForm), "6.0 2.0 ");
  EXPECT_EQ(Column(data_, "SELECT uuid FROM volume_table;"), std::string(kNewForm) + " ");
  EXPECT_EQ(Config(File(kNewForm), "'version'"), "version=4000 ");
  EXPECT_TRUE(Logged("Update repo path '" + folder_ + "' uuid\n"));
}

TEST_F(SvrUpdater3450to4000Test, NewFormStaysAndAFailedCheckEndsTheRun) {
  ReachOnBtrfs(kNewForm);
  fs::copy(folder_, folder_ + ".failing", fs::copy_options::recursive);
  ASSERT_EQ(Run<SvrUpdater3450to4000>(), 0);
  EXPECT_EQ(Holding(kNewForm), "6.0 2.0 ");
  fs::remove_all(folder_);
  fs::rename(folder_ + ".failing", folder_);
  sink_.Clear();
  fake_.volumes.failing_calls.insert("GetFileSystemType");
  EXPECT_EQ(Run<SvrUpdater3450to4000>(), -1);
  EXPECT_EQ(sink_.Texts(), (std::vector<std::string>{
                               "Strato Folder Updater(N): Failed to check btrfs volume '" + folder_ + "'\n",
                               "Strato Folder Updater(N): Fail to get btrfs uuid history\n",
                               "Strato Folder Updater(N): failed to update for btrfs uuid\n"}));
}

TEST_F(SvrUpdater3450to4000Test, FailingRenameLeavesItsViewAsItWas) {
  ReachOnBtrfs(kOldForm);
  Exec(View("2"),
       "CREATE TRIGGER t BEFORE UPDATE OF mac_attr ON version_table BEGIN SELECT RAISE(ABORT, 'no'); END;");
  EXPECT_EQ(Run<SvrUpdater3450to4000>(), -1);
  EXPECT_EQ(Holding(kOldForm), "0.0 2.0 ");
  EXPECT_TRUE(Logged("Failed to update view db (2)\n"));
  EXPECT_TRUE(Logged("Failed to update uuid for view 2\n"));
  EXPECT_TRUE(fs::exists(File(kOldForm)));
}

TEST_F(SvrUpdater3450to4000Test, UserSchemaIsAllOrNothing) {
  Reach(3450);
  Exec(user_, "ALTER TABLE session_table ADD client_platform;");
  EXPECT_EQ(Run<SvrUpdater3450to4000>(), -1);
  EXPECT_TRUE(Logged("failed to update user database schema\n"));
  EXPECT_EQ(sink_.Texts()[0].find(
                "Strato Folder Updater(N): sqlite3_exec(1), duplicate column name: client_platform, "
                "sql = BEGIN TRANSACTION; ALTER TABLE"),
            0U);
  EXPECT_EQ(Column(user_, "SELECT count(*) FROM pragma_table_info('session_table');"), "2 ");
}

}  // namespace
