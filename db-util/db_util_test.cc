#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "db-util/database.h"
#include "db-util/database_files.h"
#include "db-util/query.h"
#include "logger/recording_sink.h"

namespace {

namespace fs = std::filesystem;
using db_util::Database;
using db_util::OpenMode;

class DbUtilTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = fs::path(::testing::TempDir()) / ("db-util-" + std::to_string(getpid()));
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string Path(const std::string& name) const { return (folder_ / name).string(); }

  static void Run(sqlite3* db, const std::string& sql) { ASSERT_EQ(db_util::ExecScript(db, sql), 0) << sql; }

  static int Count(const std::string& path) {
    Database db;
    int count = -1;
    EXPECT_EQ(db_util::OpenDatabase(path, db, OpenMode::kReadOnly), 0);
    EXPECT_TRUE(db_util::QueryInt(db.get(), "SELECT count(*) FROM t;", count).ok());
    return count;
  }

  fs::path folder_;
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(DbUtilTest, OpenDatabaseIsSilentOnlyForAnEmptyPath) {
  Database db;
  EXPECT_EQ(db_util::OpenDatabase("", db), -1);
  EXPECT_TRUE(sink_.lines().empty());
  EXPECT_EQ(db_util::OpenDatabase(folder_, db), -1);
  EXPECT_EQ(db, nullptr);
  EXPECT_EQ(sink_.Count("StratoFolder: Open database: " + folder_.string() + " failed (error code 14)\n"), 1);
}

TEST_F(DbUtilTest, ExecSqlFormatsOnceAndLogsTheStatementThatFailed) {
  Database db;
  ASSERT_EQ(db_util::OpenDatabase(Path("a"), db), 0);
  ASSERT_EQ(db_util::ExecSql(db.get(), "CREATE TABLE t (v DEFAULT (strftime('%%s','now')), w);"), 0);
  const std::string awkward = "it's 100%s %Q";
  ASSERT_EQ(db_util::ExecSql(db.get(), "INSERT INTO t (w) VALUES (%Q); INSERT INTO t (w) VALUES ('%q');",
                             awkward, awkward),
            0);
  int equal = 0;
  ASSERT_TRUE(
      db_util::QueryInt(db.get(), "SELECT count(*) FROM t WHERE w = 'it''s 100%s %Q' AND v > 0;", equal)
          .ok());
  EXPECT_EQ(equal, 2);
  EXPECT_EQ(db_util::ExecSql(db.get(), "DELETE FROM t; DROP TABLE %Q;", std::string("missing%s")), -1);
  EXPECT_EQ(sink_.Texts().back(),
            "Strato Folder Updater(N): sqlite3_exec(DELETE FROM t; DROP TABLE 'missing%s';): no such table: "
            "missing%s (1)\n");
  ASSERT_TRUE(db_util::QueryInt(db.get(), "SELECT count(*) FROM t;", equal).ok());
  EXPECT_EQ(equal, 0) << "what ran before the failing statement stays";
}

TEST_F(DbUtilTest, ScratchDatabaseIgnoresWhateverWasPlanted) {
  std::ofstream(Path("victim")) << "precious";
  fs::create_symlink(Path("victim"), Path("scratch"));
  std::ofstream(Path("scratch-journal")) << "planted";
  Database db;
  ASSERT_EQ(db_util::OpenScratchDatabase(Path("scratch"), db), 0);
  Run(db.get(), "CREATE TABLE t (a);");
  EXPECT_EQ(fs::file_size(Path("victim")), 8U);
  EXPECT_FALSE(fs::is_symlink(Path("scratch")));
  struct stat status {};
  ASSERT_EQ(stat(Path("scratch").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  db.reset();
  fs::remove(Path("scratch"));
  fs::create_directories(Path("scratch") + "/full");
  EXPECT_EQ(db_util::OpenScratchDatabase(Path("scratch"), db), -1);
  EXPECT_EQ(sink_.Count("StratoFolder: Open database: " + Path("scratch") + " failed (error code 14)\n"), 1);
}

// Copies the files as a killed process leaves them: committed rows only in the write-ahead log, or a
// transaction half written with its journal beside it.
TEST_F(DbUtilTest, FoldBringsAWriteAheadLogIntoTheFile) {
  Database db;
  ASSERT_EQ(db_util::OpenDatabase(Path("a"), db), 0);
  Run(db.get(),
      "PRAGMA journal_mode = WAL; CREATE TABLE t (a); PRAGMA wal_checkpoint; INSERT INTO t VALUES (1), (2);");
  fs::copy_file(Path("a"), Path("b"));
  fs::copy_file(Path("a-wal"), Path("b-wal"));
  ASSERT_EQ(db_util::FoldDatabase(Path("b")), 0);
  EXPECT_FALSE(fs::exists(Path("b-wal")));
  EXPECT_FALSE(fs::exists(Path("b-shm")));
  fs::copy_file(Path("b"), Path("c"));  // the file alone holds the rows
  EXPECT_EQ(Count(Path("c")), 2);
}

TEST_F(DbUtilTest, FoldRollsAHotJournalBack) {
  Database db;
  ASSERT_EQ(db_util::OpenDatabase(Path("a"), db), 0);
  Run(db.get(),
      "PRAGMA cache_size = 1; CREATE TABLE t (a); INSERT INTO t VALUES (1); BEGIN; DELETE FROM t;"
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000)"
      "INSERT INTO t SELECT zeroblob(200) FROM n;");
  fs::copy_file(Path("a"), Path("b"));
  fs::copy_file(Path("a-journal"), Path("b-journal"));
  ASSERT_EQ(db_util::FoldDatabase(Path("b")), 0);
  EXPECT_FALSE(fs::exists(Path("b-journal")));
  EXPECT_EQ(Count(Path("b")), 1);
}

TEST_F(DbUtilTest, FoldRefusesWhatIsNoDatabaseAndForgetsCompanionsOfNothing) {
  std::ofstream(Path("text")) << std::string(4096, 'x');
  EXPECT_EQ(db_util::FoldDatabase(Path("text")), -1);
  EXPECT_EQ(sink_.Count("cannot fold database " + Path("text") + ": file is not a database (26)\n"), 1);
  std::ofstream(Path("gone-wal")) << "stale";
  EXPECT_EQ(db_util::FoldDatabase(Path("gone")), 0);
  EXPECT_FALSE(fs::exists(Path("gone-wal")));
  EXPECT_FALSE(fs::exists(Path("gone")));
}

}  // namespace
