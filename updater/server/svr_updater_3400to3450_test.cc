#include "updater/server/split_fixture.h"

namespace {

namespace fs = std::filesystem;
using updater::server::SvrUpdater3400to3450;

class SvrUpdater3400to3450Test : public tests::SplitTest {
 protected:
  [[nodiscard]] std::string Rotation(const std::string& view) const {
    return Config(View(view), "'rotate_cnt','remove_repo','version'");
  }
};

TEST_F(SvrUpdater3400to3450Test, SharedEntryReachesUsersViewsOnly) {
  Exec(user_, "INSERT INTO user_table VALUES (3, '@other', 0, 0, 3, 1);");
  Reach(3400);
  for (const char* name : {"abc", "1abc"})
    fs::copy(view_ + "/1", view_ + "/" + name);  // no view's, so not 0's
  Exec(user_, "INSERT INTO customized_rotate_cnt_table VALUES (0, 5), (1, 9), (2, 0);");
  ASSERT_EQ(Run<SvrUpdater3400to3450>(), 0);
  EXPECT_EQ(Rotation("1"), "remove_repo=0 rotate_cnt=5 version=3450 ");
  EXPECT_EQ(Rotation("2"), "remove_repo=1 rotate_cnt=1 version=3450 ");
  EXPECT_EQ(Rotation("3"), "remove_repo=0 rotate_cnt=32 version=3450 ");
  EXPECT_EQ(Rotation("abc"), "remove_repo=0 rotate_cnt=32 version=3450 ");
  EXPECT_EQ(Rotation("1abc"), "remove_repo=0 rotate_cnt=32 version=3450 ");
  EXPECT_EQ(Config(File(fake_.volumes.everywhere.ext_uuid), "'version'"), "version=3450 ");
  EXPECT_EQ(Config(log_, "'version'"), "version=3450 ");
}

TEST_F(SvrUpdater3400to3450Test, ProfileTableIsRebuiltUnderATriggerThatNamesIt) {
  Reach(3400);
  Exec(
      user_,
      "CREATE TRIGGER t AFTER DELETE ON user_table BEGIN DELETE FROM profile_table WHERE name = OLD.name; END;");
  ASSERT_EQ(Run<SvrUpdater3400to3450>(), 0);
  EXPECT_EQ(Column(user_, "SELECT id || name || context || attribute FROM profile_table;"),
            "4mine{}0 5internal for enc share{\"filtered_max_name_length\":143}7 ");
  EXPECT_EQ(Column(user_, "SELECT profile_id || '-' || view_id FROM profile_apply_view_table;"), "5-2 ");
  Exec(user_, "DELETE FROM user_table;");
}

// The message for the file folder names the view folder.
TEST_F(SvrUpdater3400to3450Test, UnlistedFileFolderIsReportedAsTheViewFolder) {
  Reach(3400);
  fs::remove_all(file_);
  EXPECT_EQ(Run<SvrUpdater3400to3450>(), -1);
  EXPECT_EQ(sink_.Texts(), (std::vector<std::string>{
                               "Strato Folder Updater(N): Failed to get files in folder " + view_ + "\n",
                               "Strato Folder Updater(N): failed to update database versions\n"}));
  EXPECT_EQ(Config(data_, "'version'"), "version=3400 ");
  fs::remove_all(view_);
  EXPECT_EQ(Run<SvrUpdater3400to3450>(), -1);
  EXPECT_TRUE(Logged("Failed to get views in " + view_ + " to update rotate count\n"));
}

TEST_F(SvrUpdater3400to3450Test, MissingRotationTableIsReported) {
  Reach(3400);
  Exec(user_, "DROP TABLE customized_rotate_cnt_table;");
  EXPECT_EQ(Run<SvrUpdater3400to3450>(), -1);
  EXPECT_TRUE(
      Logged("sqlite3_prepare_v2(1), sql = SELECT view_id, rotate_cnt FROM "
             "user_db.customized_rotate_cnt_table; \n"));
  EXPECT_TRUE(Logged("Failed to EnumCustomizedRotateTable\n"));
}

}  // namespace
