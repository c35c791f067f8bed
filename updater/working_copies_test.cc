#include "updater/working_copies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "db-util/database.h"
#include "db-util/execute.h"
#include "tests/support/fixtures.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/recording_sink.h"
#include "tests/support/temporary_folder.h"
#include "updater/placement.h"

namespace updater {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

class WorkingCopiesTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(paths_.live.sync_folder); }

  static std::string Make(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  // Every file under the folder with its content, sorted.
  static std::vector<std::string> Files(const std::string& folder) {
    std::vector<std::string> files;
    for (const auto& [path, content] : tests::ReadTree(folder)) {
      if (content != "folder") files.push_back(path + "=" + content);
    }
    return files;
  }

  // A database as a killed process leaves it: `value` is committed, but only in the write-ahead log.
  static void MakeKilled(const std::string& path, const std::string& value) {
    db_util::Database db;
    ASSERT_EQ(db_util::OpenDatabase(Make(path, ""), db), 0);
    ASSERT_EQ(sqlite3_db_config(db.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr), SQLITE_OK);
    ASSERT_TRUE(db_util::Execute(db.get(),
                                 "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = WAL;"
                                 "CREATE TABLE t AS SELECT '" +
                                     value + "' AS v;")
                    .ok());
  }
  static std::string Skipped(const std::string& link) {
    return "warning: " + link + " is a link to a folder and is skipped, its database is not upgraded";
  }
  static std::string Value(const std::string& path) { return tests::Query(path, "SELECT v FROM t;"); }

  const tests::TemporaryFolder folder_;
  package::VolumePaths paths_{folder_.path()};
  tests::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(WorkingCopiesTest, DatabaseBehindALinkIsCopiedWithTheCompanionsItHasAndReplacesAnOldCopy) {
  EXPECT_EQ(BackupDatabaseFile(paths_.live.log, paths_.copies.log), 0);  // no such database
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) Make(paths_.copies.user + suffix, "old");
  const std::string elsewhere = Make(paths_.volume + "/elsewhere", "main");
  for (const char* suffix : {"-wal", "-journal"}) Make(elsewhere + suffix, suffix);
  fs::create_symlink(elsewhere, paths_.live.user);
  EXPECT_EQ(BackupDatabaseFile(paths_.live.user, paths_.copies.user), 0);
  EXPECT_THAT(Files(paths_.live.sync_folder),
              ElementsAre("user-db.sqlite=main", "user-db.sqlite.bak=main",
                          "user-db.sqlite.bak-journal=-journal", "user-db.sqlite.bak-wal=-wal"));
  for (const std::string& folder : {paths_.live.file_folder + "/uuid", paths_.copies.file_folder})
    fs::create_directories(folder);
  fs::create_symlink(elsewhere, paths_.live.file_folder + "/uuid/file-db.sqlite");
  fs::create_directory_symlink(".", paths_.live.file_folder + "/link");
  EXPECT_EQ(BackupFileFolder(paths_.live.file_folder, paths_.copies.file_folder), 0);
  EXPECT_FALSE(fs::is_symlink(paths_.copies.file_folder + "/uuid/file-db.sqlite"));
  EXPECT_EQ(sink_.Texts(), std::vector{Skipped(paths_.live.file_folder + "/link")});
}

TEST_F(WorkingCopiesTest, ViewsOfTheLiveFolderAreRestoredAndOthersDropped) {
  for (const char* name :
       {"/7/view-db.sqlite", "/7/view-db.sqlite-wal", "/7/sign/.0", "/name/view-db.sqlite", "/file"}) {
    Make(paths_.live.view_folder + name, "old");
  }
  const std::string outside = Make(paths_.volume + "/outside/view-db.sqlite", "precious");
  fs::create_symlink(paths_.volume + "/outside", paths_.live.view_folder + "/8");
  Make(paths_.copies.view_folder + "/99/view-db.sqlite", "of a former run");
  ASSERT_EQ(BackupViewFolder(paths_.live.view_folder, paths_.copies.view_folder), 0);
  EXPECT_THAT(Files(paths_.copies.view_folder),
              ElementsAre("7/view-db.sqlite=old", "7/view-db.sqlite-wal=old", "name/view-db.sqlite=old"));
  EXPECT_EQ(sink_.Texts(), std::vector{Skipped(paths_.live.view_folder + "/8")});
  for (const char* id : {"/7", "/8", "/9", "/name"})
    Make(paths_.copies.view_folder + id + "/view-db.sqlite", "new");
  fs::remove(paths_.copies.view_folder + "/7/view-db.sqlite-wal");
  ASSERT_EQ(RestoreViewFolder(paths_.copies.view_folder, paths_.live.view_folder), 0);
  fs::remove(paths_.live.view_folder + "/8");
  EXPECT_THAT(Files(paths_.live.view_folder),
              ElementsAre("7/sign/.0=old", "7/view-db.sqlite=new", "file=old", "name/view-db.sqlite=new"));
  EXPECT_EQ(tests::ReadFile(outside), "precious");
  EXPECT_FALSE(fs::exists(paths_.copies.view_folder));
}

TEST_F(WorkingCopiesTest, RestoresThatFailAreNamedAndLoseNothing) {
  const std::string view = paths_.live.view_folder;
  const std::string view_copy = paths_.copies.view_folder;
  EXPECT_EQ(RestoreViewFolder(view_copy, view), -1);
  Make(view, "a file");
  EXPECT_EQ(BackupViewFolder(view, view + "/x"), -1);
  fs::create_directories(view_copy);
  EXPECT_EQ(RestoreViewFolder(view_copy, view), -1);
  fs::remove_all(view_copy);
  fs::remove(view);
  for (const std::string& folder : {view + "/7", paths_.live.file_folder}) Make(folder + "/kept", "");
  EXPECT_EQ(RestoreViewFolder(view_copy, view), -1);
  EXPECT_EQ(RestoreFileFolder(paths_.copies.file_folder, paths_.live.file_folder), -1);
  EXPECT_THAT(Files(paths_.live.sync_folder), ElementsAre("file/kept=", "view/7/kept="));
  EXPECT_THAT(sink_.Texts(),
              ElementsAre("Failed to rename from " + view_copy + " to " + view + "\n",
                          "Cannot remove old backup at " + view + "/x: Not a directory (20)",
                          "Failed to get views to restore in " + view + "\n",
                          "Cannot restore " + view_copy + " to " + view,
                          "Cannot restore " + paths_.copies.file_folder + " to " + paths_.live.file_folder));
  sink_.Clear();
  fs::create_directories(paths_.live.user);
  Make(paths_.copies.user, "");
  fs::create_directory(view_copy);
  PlaceWorkingCopies(paths_);
  EXPECT_THAT(
      sink_.Texts(),
      ElementsAre("cannot move " + paths_.copies.user + " to " + paths_.live.user + ": Is a directory (21)\n",
                  "Cannot restore " + paths_.copies.file_folder + " to " + paths_.live.file_folder));
  if (!tests::EnterMountNamespace() || !tests::Run("mount -t tmpfs none " + paths_.live.file_folder)) return;
  const tests::ScopedMount mount(paths_.live.file_folder);
  for (const std::string& folder : {paths_.copies.file_folder, paths_.live.file_folder})
    Make(folder + "/kept", "");
  EXPECT_EQ(RestoreFileFolder(paths_.copies.file_folder, paths_.live.file_folder), -1);
  EXPECT_THAT(Files(paths_.live.file_folder), ElementsAre("kept="));
}

// What is left beside a live database would be replayed into the new file.
TEST_F(WorkingCopiesTest, NothingLeftBesideALiveDatabaseIsReplayedAndNoDamagedCopyPlaced) {
  Make(paths_.live.client + "-wal", "of a database that is gone");
  const std::string view = "/7/view-db.sqlite";
  for (const std::string& live : {paths_.live.user, paths_.live.view_folder + view})
    MakeKilled(live, "newer");
  Make(paths_.copies.user, std::string(4096, 'x'));
  Make(paths_.copies.user + "-wal", "log");
  EXPECT_EQ(PreparePlacement(paths_), -1);
  EXPECT_EQ(sink_.Texts(),
            std::vector{"cannot fold database " + paths_.copies.user + ": file is not a database (26)\n"});
  sink_.Clear();
  EXPECT_EQ(RemoveDatabaseFiles(paths_.copies.user), 0);
  const std::string file = "/uuid/file-db.sqlite";
  for (const std::string& copy : {paths_.copies.user, paths_.copies.client, paths_.copies.view_folder + view,
                                  paths_.copies.file_folder + file}) {
    MakeKilled(copy, "upgraded");
  }

  ASSERT_EQ(PreparePlacement(paths_), 0);
  EXPECT_TRUE(fs::exists(paths_.placing_mark));
  fs::copy_file(paths_.live.user, folder_ / "user-before");
  EXPECT_EQ(Value(folder_ / "user-before"), "newer ");  // whole in its file, and not replaced yet
  EXPECT_TRUE(sink_.lines().empty());
  PlaceWorkingCopies(paths_);
  EXPECT_EQ(Files(folder_ / "@stratofolder").size(), 4U) << "companions or copies are left";
  for (const std::string& live : {paths_.live.user, paths_.live.client, paths_.live.view_folder + view,
                                  paths_.live.file_folder + file}) {
    EXPECT_EQ(Value(live), "upgraded ") << live;
  }
}

}  // namespace
}  // namespace updater
