#include "updater/working_copies.h"

#include "base/fnv.h"
#include "tests/support/fixtures.h"
#include "tests/support/logged_test.h"
#include "tests/support/mount_namespace.h"
#include "updater/free_space.h"
#include "updater/placement.h"
#include "updater/placement_intent.h"

namespace updater {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using tests::WriteFile;

class WorkingCopiesTest : public tests::LoggedTest {
 protected:
  void SetUp() override { fs::create_directories(live_.sync_folder); }

  // Every file under the folder with its content, sorted.
  static std::vector<std::string> Files(const std::string& folder) {
    std::vector<std::string> files;
    for (const auto& [path, content] : tests::ReadTree(folder)) {
      if (content != "folder") files.push_back(path + "=" + content);
    }
    return files;
  }

  static void MakeKilled(const std::string& path, const std::string& value) {
    tests::RunSqlKilled(WriteFile(path, ""), "CREATE TABLE t AS SELECT '" + value + "' AS v;");
  }
  static std::string Skipped(const std::string& link) {
    return "warning: " + link + " is a link to a folder and is skipped, its database is not upgraded";
  }

  const package::VolumePaths paths_{folder_.path()};
  const package::PackagePaths& live_ = paths_.live;
  const package::PackagePaths& copies_ = paths_.copies;
  FileSystems file_systems_;
};

TEST_F(WorkingCopiesTest, DatabaseBehindALinkIsCopiedWithTheCompanionsItHasAndReplacesAnOldCopy) {
  EXPECT_EQ(BackupDatabaseFile(live_.log, copies_.log), 0);  // no such database
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) WriteFile(copies_.user + suffix, "old");
  const std::string elsewhere = WriteFile(paths_.volume + "/elsewhere", "main");
  for (const char* suffix : {"-wal", "-journal"}) WriteFile(elsewhere + suffix, suffix);
  fs::create_symlink(elsewhere, live_.user);
  EXPECT_EQ(BackupDatabaseFile(live_.user, copies_.user), 0);
  EXPECT_THAT(Files(live_.sync_folder),
              ElementsAre("user-db.sqlite=main", "user-db.sqlite.bak=main",
                          "user-db.sqlite.bak-journal=-journal", "user-db.sqlite.bak-wal=-wal"));
  for (const std::string& folder : {live_.file_folder + "/uuid", copies_.file_folder})
    fs::create_directories(folder);
  fs::create_symlink(elsewhere, live_.file_folder + "/uuid/file-db.sqlite");
  fs::create_directory_symlink(".", live_.file_folder + "/link");
  EXPECT_EQ(BackupFileFolder(live_.file_folder, copies_.file_folder), 0);
  EXPECT_FALSE(fs::is_symlink(copies_.file_folder + "/uuid/file-db.sqlite"));
  EXPECT_EQ(sink_.Texts(), std::vector{Skipped(live_.file_folder + "/link")});
}

TEST_F(WorkingCopiesTest, ALinkToTheViewsIsFollowedOnlyIfRootMadeIt) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give a link to another user";
  const std::string views = paths_.volume + "/outside";
  WriteFile(views + "/7/view-db.sqlite", "old");
  fs::remove_all(live_.view_folder), fs::create_symlink(views, live_.view_folder);
  ASSERT_EQ(BackupViewFolder(live_.view_folder, copies_.view_folder), 0);
  WriteFile(copies_.view_folder + "/7/view-db.sqlite", "new");
  ASSERT_EQ(lchown(live_.view_folder.c_str(), 1234, 1234), 0);
  EXPECT_EQ(RestoreView(copies_.view_folder, live_.view_folder, "7"), -1);
  EXPECT_EQ(RestoreViewFolder(copies_.view_folder, live_.view_folder), -1);
  EXPECT_EQ(tests::ReadFile(views + "/7/view-db.sqlite"), "old");
  EXPECT_EQ(BackupViewFolder(live_.view_folder, copies_.view_folder), -1);
}

TEST_F(WorkingCopiesTest, ViewsOfTheLiveFolderAreRestoredAndOthersDropped) {
  for (const char* name :
       {"/7/view-db.sqlite", "/7/view-db.sqlite-wal", "/7/sign/.0", "/name/view-db.sqlite", "/file"}) {
    WriteFile(live_.view_folder + name, "old");
  }
  const std::string outside = WriteFile(paths_.volume + "/outside/view-db.sqlite", "precious");
  fs::create_symlink(paths_.volume + "/outside", live_.view_folder + "/8");
  WriteFile(copies_.view_folder + "/99/view-db.sqlite", "of a former run");
  ASSERT_EQ(BackupViewFolder(live_.view_folder, copies_.view_folder), 0);
  EXPECT_THAT(Files(copies_.view_folder),
              ElementsAre("7/view-db.sqlite=old", "7/view-db.sqlite-wal=old", "name/view-db.sqlite=old"));
  EXPECT_EQ(sink_.Texts(), std::vector{Skipped(live_.view_folder + "/8")});
  for (const char* id : {"/7", "/8", "/9", "/name"})
    WriteFile(copies_.view_folder + id + "/view-db.sqlite", "new");
  fs::remove(copies_.view_folder + "/7/view-db.sqlite-wal");
  ASSERT_EQ(RestoreViewFolder(copies_.view_folder, live_.view_folder), 0);
  fs::remove(live_.view_folder + "/8");
  EXPECT_THAT(Files(live_.view_folder),
              ElementsAre("7/sign/.0=old", "7/view-db.sqlite=new", "file=old", "name/view-db.sqlite=new"));
  EXPECT_EQ(tests::ReadFile(outside), "precious");
  EXPECT_FALSE(fs::exists(copies_.view_folder));
}

TEST_F(WorkingCopiesTest, RestoresThatFailAreNamedAndLoseNothing) {
  const std::string view = live_.view_folder;
  const std::string view_copy = copies_.view_folder;
  EXPECT_EQ(RestoreViewFolder(view_copy, view), -1);
  WriteFile(view, "a file");
  EXPECT_EQ(BackupViewFolder(view, view + "/x"), -1);
  fs::create_directories(view_copy);
  EXPECT_EQ(RestoreViewFolder(view_copy, view), -1);
  fs::remove_all(view_copy);
  fs::remove(view);
  for (const std::string& folder : {view + "/7", live_.file_folder}) WriteFile(folder + "/kept", "");
  EXPECT_EQ(RestoreViewFolder(view_copy, view), -1);
  EXPECT_EQ(RestoreFileFolder(copies_.file_folder, live_.file_folder), -1);
  EXPECT_THAT(Files(live_.sync_folder), ElementsAre("file/kept=", "view/7/kept="));
  EXPECT_THAT(sink_.Texts(),
              ElementsAre("Failed to rename from " + view_copy + " to " + view + "\n",
                          "Cannot remove old backup at " + view + "/x: Not a directory (20)",
                          "Failed to get views to restore in " + view + "\n",
                          "Cannot restore " + view_copy + " to " + view,
                          "Cannot restore " + copies_.file_folder + " to " + live_.file_folder));
  sink_.Clear();
  fs::create_directories(live_.user);
  WriteFile(copies_.user, "");
  fs::create_directory(view_copy);
  PlaceWorkingCopies(paths_, file_systems_);
  EXPECT_THAT(sink_.Texts(),
              ElementsAre("cannot move " + copies_.user + " to " + live_.user + ": Is a directory (21)\n",
                          "Cannot restore " + copies_.file_folder + " to " + live_.file_folder));
}

// What is left beside a live database would be replayed into the new file.
TEST_F(WorkingCopiesTest, NothingLeftBesideALiveDatabaseIsReplayedAndNoDamagedCopyPlaced) {
  WriteFile(live_.client + "-wal", "of a database that is gone");
  MakeKilled(live_.user, "newer");
  WriteFile(copies_.user, std::string(4096, 'x'));
  WriteFile(copies_.user + "-wal", "log");
  EXPECT_EQ(PreparePlacement(paths_, file_systems_), -1);
  EXPECT_EQ(sink_.Texts(),
            std::vector{"cannot fold database " + copies_.user + ": file is not a database (26)\n"});
  sink_.Clear();
  EXPECT_EQ(RemoveDatabaseFiles(copies_.user), 0);
  for (const std::string& copy : {copies_.user, copies_.client}) MakeKilled(copy, "upgraded");
  ASSERT_EQ(PreparePlacement(paths_, file_systems_), 0);
  EXPECT_TRUE(sink_.lines().empty());
  PlaceWorkingCopies(paths_, file_systems_);
  EXPECT_EQ(Files(folder_ / "@stratofolder").size(), 2U) << "companions or copies are left";
  EXPECT_EQ(tests::Query(live_.user, "SELECT v FROM t") + tests::Query(live_.client, "SELECT v FROM t"),
            "upgraded upgraded ");
}

TEST_F(WorkingCopiesTest, TheSpaceForEverythingThatIsCopiedIsNamed) {
  for (const std::string& path :
       {live_.user, live_.user + "-wal", live_.ViewDatabase("7"), live_.file_folder + "/a/b"}) {
    WriteFile(path, std::string(100, 'x'));
  }
  WriteFile(live_.view_folder + "/7/other", std::string(100, 'x'));
  LogFreeSpace(paths_);
  EXPECT_THAT(sink_.Texts(),
              ElementsAre(::testing::MatchesRegex("the upgrade needs about 1050 bytes on the volume, "
                                                  "[1-9][0-9]* are free\n")));
}

// A placement that was stopped after its first move, and what happened then.
TEST_F(WorkingCopiesTest, AStoppedPlacementIsFinishedButForWhatWasChangedSince) {
  const std::string file = "/uuid/file-db.sqlite";
  const std::string new_name = copies_.view_folder + "/7/view-db.sqlite";
  const std::string linked = folder_ / "linked";
  // What was changed after the first move or before it, what is live at the end, and what of it is left
  // alone.
  const std::string finished = "finished what a former run was putting in place: 3 of 4 parts were left\n";
  const std::string aside;
  const std::tuple<bool, std::string, const char*, std::string> cases[] = {
      {true, live_.file_folder + file + "-shm", "new new new new", finished},
      {true, live_.view_folder, "new new new new", finished},
      {true, live_.file_folder, "new new new new", finished},
      {true, live_.data, "new lat new new", live_.data},
      {true, live_.data + "-wal", "new old new new", live_.data},
      {true, copies_.data, "new old new new", live_.data},
      {true, new_name, "new new old new", live_.ViewDatabase("7")},
      {true, linked + "-wal", "new old new new", live_.data},
      {true, live_.file_folder + file, "new new new lat", live_.file_folder},
      {true, live_.file_folder + file + "-wal", "new new new old", live_.file_folder},
      {false, live_.ViewDatabase("7"), "old old lat old", aside},
      {false, paths_.intent, "old old old old", aside}};
  for (const auto& [moved, changed, expected, line] : cases) {
    fs::remove_all(live_.sync_folder);
    const std::vector<std::string> live = {live_.user, live_.data, live_.ViewDatabase("7"),
                                           live_.file_folder + file};
    for (const std::string& path : live) WriteFile(path, "old");
    for (const std::string& path : {copies_.user, copies_.data, new_name, copies_.file_folder + file}) {
      WriteFile(path, "new");
    }
    if (changed.starts_with(linked)) fs::rename(live_.data, linked), fs::create_symlink(linked, live_.data);
    sink_.Clear();
    file_systems_.Open(paths_);
    ASSERT_EQ(PreparePlacement(paths_, file_systems_), 0) << ::testing::PrintToString(sink_.Texts());
    if (moved) fs::rename(copies_.user, live_.user);
    if (fs::is_directory(changed)) {
      fs::remove_all(changed);
      fs::create_directory(changed);
    } else if (changed == new_name) {
      fs::remove(changed), fs::create_symlink(linked, changed);
    } else {
      WriteFile(changed, "lat");
    }
    const bool is_left = line.starts_with('/');
    const bool is_damaged = changed == paths_.intent;
    EXPECT_EQ(FinishFormerPlacement(paths_), is_left || is_damaged ? -1 : 0) << changed;
    EXPECT_EQ(fs::exists(copies_.data + ".set-aside"), is_damaged);
    std::string found;
    for (const std::string& path : live) found += (found.empty() ? "" : " ") + tests::ReadFile(path);
    EXPECT_EQ(found, expected) << changed;
    EXPECT_EQ(fs::exists(paths_.intent + ".set-aside"), line == aside) << changed;
    EXPECT_EQ(fs::exists(paths_.intent), is_left) << changed;
    const std::string why = " was changed after a run was stopped that replaced it, and is left as it is\n";
    if (line != aside) {
      EXPECT_EQ(sink_.Texts().front(), line + (is_left ? why : ""));
    }
  }
}

TEST_F(WorkingCopiesTest, WhatTheCheckChangesAfterAMoveThatFailedKeepsNobodyFromFinishingIt) {
  for (const std::string& path : {live_.user, live_.data, live_.ViewDatabase("7")}) WriteFile(path, "old");
  for (const std::string& path : {copies_.user, copies_.data, copies_.ViewDatabase("7")})
    WriteFile(path, "new");
  file_systems_.Open(paths_);
  ASSERT_EQ(PreparePlacement(paths_, file_systems_), 0);
  fs::rename(copies_.data, live_.data);
  fs::remove_all(live_.view_folder + "/7"), fs::remove_all(copies_.view_folder + "/7");
  WriteFile(live_.user, "watch path");
  AcceptLiveChanges(paths_);
  EXPECT_EQ(FinishFormerPlacement(paths_), 0) << ::testing::PrintToString(sink_.Texts());
  EXPECT_EQ(tests::ReadFile(live_.user) + tests::ReadFile(live_.data), "newnew");
  const Intent one = {{.part = "user", .copy = {}, .live = {}}};
  std::string later = FormatIntent({});
  EXPECT_EQ(ParseIntent(later + FormatIntent(one) + later.substr(0, later.size() - 1)), one);
  later.replace(later.find('1'), 1, "2");
  later.resize(later.find('\n') + 1);
  EXPECT_FALSE(ParseIntent(later + "checksum " + std::to_string(base::Fnv1a(later)) + "\n"));
}

// A mount that appears over a view in mid-run is as good as a move that fails, and so is what lies behind it.
TEST_F(WorkingCopiesTest, AMountOverAViewInTheMovesCostsNothing) {
  const std::string view = live_.view_folder + "/7";
  for (const std::string& path : {live_.user, live_.ViewDatabase("7")}) WriteFile(path, "old");
  for (const std::string& path : {copies_.user, copies_.ViewDatabase("7")}) WriteFile(path, "new");
  file_systems_.Open(paths_);
  ASSERT_EQ(PreparePlacement(paths_, file_systems_), 0);
  if (!tests::EnterMountNamespace() || !tests::Run("mount -t tmpfs none " + view))
    GTEST_SKIP() << "no mounts";
  PlaceWorkingCopies(paths_, file_systems_);
  ASSERT_TRUE(tests::Run("umount " + view));
  EXPECT_EQ(FinishFormerPlacement(paths_), 0);
  EXPECT_EQ(tests::ReadFile(live_.user) + tests::ReadFile(live_.ViewDatabase("7")), "newnew");
}

}  // namespace
}  // namespace updater
