#include <sys/stat.h>

#include <numeric>
#include <utility>

#include "db-util/checkpoint.h"
#include "db-util/database.h"
#include "db-util/execute.h"
#include "db-util/log_mode.h"
#include "tests/support/logged_test.h"
#include "tests/support/mount_namespace.h"

namespace {

namespace fs = std::filesystem;

class DbUtilTest : public tests::LoggedTest {
 protected:
  db_util::Database db_;
};

// What was planted there is told by runs of the whole program.
TEST_F(DbUtilTest, AScratchDatabaseIsPrivateAndAFailureIsNamed) {
  const std::string scratch = folder_ / "scratch";
  ASSERT_EQ(db_util::OpenScratchDatabase(scratch, db_), 0);
  EXPECT_EQ(tests::StatusOf(scratch).st_mode, S_IFREG | 0600U);
  fs::remove(scratch);
  folder_.Write("scratch/full", "");
  EXPECT_EQ(db_util::OpenScratchDatabase(scratch, db_), -1);
  EXPECT_EQ(db_util::OpenDatabase("", db_), -1) << "and tells nothing";
  EXPECT_EQ(sink_.Count("StratoFolder: Open database: " + scratch + " failed (error code 14)\n"), 1);
}

TEST_F(DbUtilTest, AttachesAndMakesNothingThatALinkOfAnotherUserOrAnotherNameLeadsTo) {
  ASSERT_EQ(db_util::OpenScratchDatabase(folder_ / "scratch", db_), 0);
  fs::create_directory_symlink(folder_.path(), folder_ / "way");
  const bool is_strange = lchown((folder_ / "way").c_str(), 1234, 1234) == 0;  // only root can give it away
  fs::create_symlink(folder_.Write("made", ""), folder_ / "link");
  fs::create_symlink("none", folder_ / "dangling");
  fs::create_hard_link(folder_.Write("outside", ""), folder_ / "hard");
  ASSERT_EQ(mkfifo((folder_ / "fifo").c_str(), 0600), 0);
  for (const auto& [name, is_refused] : {std::pair("made", false),
                                         {"way/made", is_strange},
                                         {"link", true},
                                         {"dangling", true},
                                         {"hard", true},
                                         {"fifo", true},
                                         {"none", true}}) {
    const std::string attach = "ATTACH '" + folder_ / name + "' AS a; PRAGMA a.user_version = 1; DETACH a;";
    EXPECT_EQ(db_util::Execute(db_.get(), attach).code, is_refused ? SQLITE_CANTOPEN : SQLITE_OK) << name;
  }
  EXPECT_LT(db_util::OpenDatabase(folder_ / "dangling", db_), 0);
  EXPECT_FALSE(fs::exists(folder_ / "none") || fs::file_size(folder_ / "outside") > 0);
}

TEST_F(DbUtilTest, ADiskThatIsAlmostFullFailsAStatementAndKillsNobody) {
  const std::string volume = folder_ / "volume";
  if (!tests::EnterMountNamespace() ||
      !tests::Run("cd " + folder_.path() + " && truncate -s 4M image && mkfs.ext4 -q -O ^has_journal image" +
                  " && mkdir volume && mount -o loop image volume")) {
    GTEST_SKIP() << "cannot mount an ext4 image";
  }
  const auto mount = tests::ScopedMount(volume);
  ASSERT_EQ(db_util::OpenDatabase(volume + "/a", db_), 0);
  ASSERT_TRUE(db_util::Execute(db_.get(), "PRAGMA journal_mode = WAL; CREATE TABLE t (a);").ok());
  db_.reset();
  // Room for the first pages of the index of the log, not for all of them.
  (void)tests::Run("cd " + volume + " && head -c 16k /dev/zero > a-room && sync && dd if=/dev/zero of=full");
  ASSERT_TRUE(tests::Run("cd " + volume + " && sync && rm a-room"));
  ASSERT_EQ(db_util::OpenDatabase(volume + "/a", db_), 0);
  EXPECT_EQ(db_util::Execute(db_.get(), "SELECT * FROM t;").code, SQLITE_IOERR);
}

TEST_F(DbUtilTest, ALogIsSuspendedOnlyOfADatabaseThatThisSqliteMayWriteTo) {
  const std::string path = folder_ / "a";
  ASSERT_EQ(db_util::OpenDatabase(path, db_), 0);
  ASSERT_TRUE(db_util::Execute(db_.get(), "PRAGMA journal_mode = WAL; CREATE TABLE t (a);").ok());
  db_.reset();
  EXPECT_EQ(db_util::SuspendLog(path), db_util::LogMode::kSuspended);
  EXPECT_TRUE(db_util::ResumeLog(path).ok());
  const std::string newer = folder_.Write("a", tests::ReadFile(path).replace(18, 1, "\3"));
  const std::string content = tests::ReadFile(newer);
  EXPECT_EQ(db_util::SuspendLog(newer), db_util::LogMode::kInUse);
  EXPECT_EQ(tests::ReadFile(newer), content);
}

// A journal without pages that names one more file, as a commit to several databases does.
std::string JournalNaming(const std::string& file) {
  const std::string magic = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";
  const auto number = [](unsigned value) {
    return std::string{static_cast<char>(value >> 24U), static_cast<char>(value >> 16U),
                       static_cast<char>(value >> 8U), static_cast<char>(value)};
  };
  std::string head = magic + number(0) + number(1) + number(2) + number(512) + number(4096);
  head.resize(512);
  return head + number(0x40000000 / 4096 + 1) + file + number(static_cast<unsigned>(file.size())) +
         number(std::accumulate(file.begin(), file.end(), 0U)) + magic;
}

TEST_F(DbUtilTest, WhatLiesBesideADatabaseCostsNobodyAFile) {
  const std::string path = folder_ / "a";
  ASSERT_EQ(db_util::OpenDatabase(path, db_), 0);
  ASSERT_TRUE(db_util::Execute(db_.get(), "CREATE TABLE t (a);").ok());
  db_.reset();
  for (const auto& [name, result] : {std::pair("b", -1), {"b-journal", -1}, {"b-mj01234567A", 0}}) {
    const std::string named = folder_.Write(name, "precious");
    folder_.Write("a-journal", JournalNaming(named));
    EXPECT_EQ(db_util::CheckpointDatabase(path), result);
    EXPECT_EQ(fs::exists(named), result < 0) << named;
  }
  EXPECT_EQ(sink_.Count(folder_ / "b is not deleted although a journal names it\n"), 1);
  fs::create_hard_link(folder_ / "b", path + "-journal");
  EXPECT_EQ(db_util::CheckpointDatabase(path), -1);
  EXPECT_NE(sink_.Count(path + "-journal is not opened: no regular file, or one with other names\n"), 0);
}

}  // namespace
