#include <sys/stat.h>

#include <fstream>

#include "updater/server/split_fixture.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kServiceUser = 1234;

class SvrUpdater3300to3400Test : public tests::SplitTest {};

TEST_F(SvrUpdater3300to3400Test, SplitsIntoViewFileAndNewDataDatabase) {
  // What a killed run leaves, with a write-ahead log that belongs to nothing any more.
  std::ofstream(folder_ + "/new-syncfolder.sqlite") << "no database";
  std::ofstream(folder_ + "/new-syncfolder.sqlite-wal") << "stale";
  fake_.volumes.everywhere.ext_uuid = "u'%s";
  fs::permissions(data_, fs::perms::owner_read | fs::perms::owner_write);
  ASSERT_EQ(RunSplit(), 0);
  EXPECT_EQ(out_.str(), "Upgrade to (master, 3400)  successfully\n");

  EXPECT_EQ(Column(View("1"),
                   "SELECT node_id || quote(v_file_uuid) || quote(v_mac_attr) || "
                   "quote(node_delta_file_uuid) || ver_cnt || quote(sign_id) FROM node_table;"),
            "1'u''%s''uuid=u''%s&x=1'NULL50 2NULL'''u''%s'20 ")
      << "only the removed node 2 has its versions counted";
  EXPECT_EQ(Column(View("1"), "SELECT ver_id || quote(file_uuid) || quote(mac_attr) FROM version_table;"),
            "11'u''%s''uuid=u''%s&x=1' 12NULL'' 13'u''%s'NULL ");
  EXPECT_EQ(Column(View("2"), "SELECT node_id || '-' || parent_id || '-' || distance FROM tree_table;"),
            "3-0-1 3-3-0 ");
  EXPECT_EQ(Config(View("2"), "'sync_id','rotate_cnt','rotate_span','version'"),
            "rotate_cnt=32 rotate_span=100 sync_id=77 version=4150 ");
  EXPECT_EQ(
      Column(View("2"), "SELECT count(*) FROM sqlite_master WHERE name LIKE '%_index' OR type = 'trigger';"),
      "18 ");
  EXPECT_EQ(Config(File("u'%s"), "'file_id','delta_id','node_delta_id'"),
            "delta_id=8 file_id=9 node_delta_id=6 ");
  EXPECT_EQ(Column(File("u'%s"), "SELECT hash FROM file_table, delta_table;"), "h2 h3 ");
  EXPECT_EQ(Column(data_, "SELECT uuid || repo_path FROM volume_table;"), "u'%s" + folder_ + " ");
  EXPECT_EQ(Column(data_, "SELECT key || '=' || value FROM config_table ORDER BY key;"),
            "branch=master remove_repo=0 rotate_cnt=32 rotate_span=100 row1=r serial=s version=3400 ");
  EXPECT_EQ(Config(client_, "'sync_id_syncd','sync_id_view_1','sync_id_view_2'"),
            "sync_id_syncd=77 sync_id_view_1=55 sync_id_view_2=77 ");
  EXPECT_EQ(Config(user_, "'view_id'"), "view_id=3 ");
  EXPECT_TRUE(fs::exists(view_ + "/1/sign/.0"));
  EXPECT_TRUE(fs::exists(folder_ + "/rm/rotate_base"));
  EXPECT_FALSE(fs::exists(folder_ + "/new-syncfolder.sqlite-wal"));
}

TEST_F(SvrUpdater3300to3400Test, NewFilesBelongToTheOwnerOfTheOldOnes) {
  if (geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  for (const std::string& path : {folder_, folder_ + "/rm", data_})
    ASSERT_EQ(chown(path.c_str(), kServiceUser, kServiceUser), 0);
  ASSERT_EQ(chmod(data_.c_str(), 0600), 0);
  ASSERT_EQ(RunSplit(), 0);
  const std::string file = File(fake_.volumes.everywhere.ext_uuid);
  for (const std::string& path : {data_, View("1"), file}) {
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kServiceUser) << path;
    EXPECT_EQ(status.st_mode & 0777U, 0600U) << path;
  }
  for (const char* path : {"/view.bak/1", "/view.bak/1/sign/.0", "/rm/file"}) {
    struct stat status {};
    ASSERT_EQ(stat((folder_ + path).c_str(), &status), 0);
    EXPECT_EQ(status.st_gid, kServiceUser) << path;
  }
}

TEST_F(SvrUpdater3300to3400Test, WithoutUsersThereAreNoViews) {
  Exec(user_, "DELETE FROM user_table;");
  ASSERT_EQ(RunSplit(), 0);
  EXPECT_TRUE(fs::is_empty(view_));
  EXPECT_EQ(Config(user_, "'view_id'"), "view_id=1 ");
  EXPECT_EQ(Column(client_, "SELECT key FROM config_table WHERE key LIKE 'sync_id_%';"), "sync_id_syncd ");
}

TEST_F(SvrUpdater3300to3400Test, RemovalFoldersNeedTheirParent) {
  fs::remove(folder_ + "/rm");
  EXPECT_EQ(RunSplit(), -1);
  EXPECT_EQ(sink_.Texts(), (std::vector<std::string>{
                               "mkdir(" + folder_ + "/rm/file): No such file or directory (2)\n",
                               "Strato Folder Updater(N): failed to create new db and rotate folders\n"}));
}

TEST_F(SvrUpdater3300to3400Test, FailingViewEndsTheRunAndLeavesTheFirstOne) {
  Exec(user_,
       "INSERT INTO user_table VALUES (3, 'twice', 0, 0, 1, 0), (4, 'late', 0, 0, 5, 0);"
       "UPDATE user_table SET view_id = 1 WHERE id = 2;");
  EXPECT_EQ(RunSplit(), -1);
  EXPECT_TRUE(Logged("CreateViewDB: initialize view db failed\n"));
  EXPECT_TRUE(Logged("Failed to create new view db for view 1\n"));
  EXPECT_TRUE(Logged("failed to update databases\n"));
  EXPECT_EQ(Column(View("1"), "SELECT name FROM node_table;"), "a b ");
  EXPECT_FALSE(fs::exists(view_ + "/5"));
  EXPECT_EQ(Config(data_, "'version','file_id'"), "file_id=9 version=3300 ");
}

TEST_F(SvrUpdater3300to3400Test, VolumeWithoutUuidIsRefused) {
  fake_.volumes.failing_calls.insert("GetExtUuid");
  EXPECT_EQ(RunSplit(), -1);
  EXPECT_TRUE(Logged("Cannot get home volume uuid (" + folder_ + ")\n"));
}

}  // namespace
