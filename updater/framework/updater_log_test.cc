#include "updater/framework/updater_log.h"

#include <gtest/gtest.h>

#include "db-util/database.h"
#include "db-util/query.h"
#include "tests/support/recording_sink.h"
#include "updater/framework/exec_sql.h"

namespace {

TEST(UpdaterLog, CarriesTheLineThatLogsAndStopsAtTheFirstFailure) {
  tests::RecordingSink sink;
  const logger::ScopedSink scope(sink);
  updater::UpdaterLog("failed to attach database\n");
  const int line = __LINE__ - 1;
  EXPECT_FALSE(updater::Check(1, "first %d\n", 1) && updater::Check(true, "true\n") &&
               updater::Check(-1, "second %d\n", 2) && updater::Check(false, "third %d\n", 3));
  ASSERT_EQ(sink.lines().size(), 2U);
  EXPECT_EQ(sink.lines()[0].text,
            "Strato Folder Updater(" + std::to_string(line) + "): failed to attach database\n");
  EXPECT_EQ(sink.lines()[0].priority, LOG_ERR);
  EXPECT_EQ(sink.Texts()[1], "Strato Folder Updater(N): second 2\n");
}

TEST(ExecSqlTest, FormatsOnceAndLogsTheStatementThatFailed) {
  db_util::Database db;
  tests::RecordingSink sink;
  const logger::ScopedSink scope(sink);
  const auto count = [&db](const std::string& condition) {
    int rows = -1;
    EXPECT_TRUE(db_util::QueryInt(db.get(), "SELECT count(*) FROM t WHERE " + condition, rows).ok());
    return rows;
  };
  ASSERT_EQ(db_util::OpenDatabase(":memory:", db), 0);
  ASSERT_EQ(updater::ExecSql(db.get(), "CREATE TABLE t (v DEFAULT (strftime('%%s','now')), w);"), 0);
  const std::string awkward = "it's 100%s %Q";
  ASSERT_EQ(updater::ExecSql(db.get(), "INSERT INTO t (w) VALUES (%Q); INSERT INTO t (w) VALUES ('%q');",
                             awkward, awkward),
            0);
  EXPECT_EQ(count("w = 'it''s 100%s %Q' AND v > 0"), 2);
  EXPECT_EQ(updater::ExecSql(db.get(), "DELETE FROM t; DROP TABLE %Q;", std::string("missing%s")), -1);
  EXPECT_EQ(sink.Texts().back(),
            "Strato Folder Updater(N): sqlite3_exec(DELETE FROM t; DROP TABLE 'missing%s';): no such table: "
            "missing%s (1)\n");
  EXPECT_EQ(count("1"), 0) << "what ran before the failing statement stays";
}

}  // namespace
