#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "db-util/database.h"
#include "db-util/query.h"
#include "db/mac_attribute.h"
#include "db/manager.h"
#include "logger/recording_sink.h"

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
    fs::remove_all(folder_);
    fs::create_directories(folder_ / "view" / "7");
    Run(folder_ / "syncfolder-db.sqlite",
        "CREATE TABLE config_table (key, value); INSERT INTO config_table VALUES ('version', 4150);"
        "CREATE TABLE volume_table (uuid VARCHAR PRIMARY KEY, repo_path VARCHAR);"
        "INSERT INTO volume_table VALUES ('b', '/two'), ('a', '/it''s 100%'), ('c', '/three');");
    Run(view_, kViewSchema);
  }
  void TearDown() override {
    Manager::Destroy(false);
    fs::remove_all(folder_);
  }

  static void Run(const std::string& path, const std::string& sql) {
    db_util::Database db;
    ASSERT_EQ(db_util::OpenDatabase(path, db), 0);
    ASSERT_EQ(db::RegisterMacAttributeFunctions(db.get()), SQLITE_OK);
    ASSERT_EQ(db_util::ExecScript(db.get(), sql), 0);
  }
  // The rows of a query, columns joined by '|'.
  std::vector<std::string> Rows(const std::string& sql) const {
    db_util::Database db;
    EXPECT_EQ(db_util::OpenDatabase(view_, db), 0);
    std::vector<std::string> rows;
    const auto add = [&rows](sqlite3_stmt* row) {
      std::string text = db_util::ColumnText(row, 0);
      for (int i = 1; i < sqlite3_column_count(row); ++i) text += "|" + db_util::ColumnText(row, i);
      rows.push_back(text);
      return true;
    };
    EXPECT_TRUE(db_util::ForEachRow(db.get(), sql, add).ok());
    return rows;
  }
  void DeleteUuid(const std::string& uuid) {
    ASSERT_EQ(Manager::Initialize(folder_), 0);
    std::shared_ptr<db::ViewDBInterface> view;
    ASSERT_EQ(Manager::GetViewDB(7, view), 0);
    ASSERT_EQ(view->DeleteRecordWithUuid(uuid), 0);
  }

  fs::path folder_ = fs::path(::testing::TempDir()) / ("db-" + std::to_string(getpid()));
  std::string view_ = folder_ / "view" / "7" / "view-db.sqlite";
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

using Lines = std::vector<std::string>;

TEST(MacAttribute, ValuesAreFoundByWholeKeys) {
  EXPECT_EQ(db::MacAttributeValue("uuid=U-1&xfile_id=1&file_id=22&x", "file_id"), "22");
  EXPECT_EQ(db::MacAttributeValue("uuid=U-1", "uuid"), "U-1");
  EXPECT_EQ(db::MacAttributeValue("uuid&file_id=", "uuid"), "");
}

TEST_F(DbTest, RemovesTheRowsOfOneVolumeAndNothingElse) {
  Run(view_,
      "INSERT INTO node_table VALUES (1, 3, 'U', 11, NULL, 'V', 5), (2, 3, 'V', 12, 'uuid=U&file_id=4', 'U', 6),"
      " (3, 0, NULL, 0, 'uuid=V&file_id=U', NULL, 0), (4, 1, 'V', 13, '', 'V', 7);"
      "INSERT INTO version_table VALUES (1, 1, 'U', 11, NULL), (2, 1, 'V', 20, NULL), (3, 2, 'U', 21, NULL),"
      " (4, 2, 'V', 12, 'uuid=U&file_id=4'), (5, 2, 'V', 22, 'uuid=V&file_id=9'), (6, 4, 'V', 13, NULL);"
      "INSERT INTO tree_table VALUES (1, 3, 1), (2, 3, 1), (4, 3, 1), (9, 1, 1);"
      "INSERT INTO remove_file_table VALUES ('U', 1), ('V', 2);");
  DeleteUuid("U");
  EXPECT_EQ(Rows("SELECT * FROM node_table"),
            (Lines{"2|2|V|12|||0", "3|0||0|uuid=V&file_id=U||0", "4|1|V|13||V|7"}));
  EXPECT_EQ(Rows("SELECT * FROM version_table"),
            (Lines{"4|2|V|12|", "5|2|V|22|uuid=V&file_id=9", "6|4|V|13|"}));
  EXPECT_EQ(Rows("SELECT * FROM tree_table"), (Lines{"2|3|1", "4|3|1"}));
  // What the trigger queued for the other volume (the removed node's second version) stays.
  EXPECT_EQ(Rows("SELECT * FROM remove_file_table"), (Lines{"V|2", "V|20"}));
}

TEST_F(DbTest, AnUnknownUuidChangesNothingAndQuotesAreText) {
  Run(view_,
      "INSERT INTO node_table VALUES (1, 1, 'V', 11, '', 'V', 5);"
      "INSERT INTO version_table VALUES (1, 1, 'V', 11, NULL);");
  DeleteUuid("' OR 1=1 --%s");
  EXPECT_EQ(Rows("SELECT * FROM node_table"), (Lines{"1|1|V|11||V|5"}));
  EXPECT_EQ(Rows("SELECT * FROM version_table"), (Lines{"1|1|V|11|"}));
}

TEST_F(DbTest, AFailureInTheMiddleRollsEverythingBack) {
  Run(view_,
      "INSERT INTO node_table VALUES (1, 1, 'U', 11, '', NULL, 0);"
      "INSERT INTO version_table VALUES (1, 1, 'U', 11, NULL);"
      "CREATE TRIGGER refuse BEFORE DELETE ON node_table BEGIN SELECT RAISE(ABORT, 'no'); END;");
  ASSERT_EQ(Manager::Initialize(folder_), 0);
  std::shared_ptr<db::ViewDBInterface> view;
  ASSERT_EQ(Manager::GetViewDB(7, view), 0);
  std::shared_ptr<db::ViewDBInterface> same_view;
  ASSERT_EQ(Manager::GetViewDB(7, same_view), 0);
  EXPECT_EQ(view->DeleteRecordWithUuid("U"), -1);
  EXPECT_EQ(sink_.Count("[ERROR] db(N): DeleteRecordWithUuid: no (19)\n"), 1);
  Manager::Destroy(false);
  EXPECT_EQ(view->DeleteRecordWithUuid("none"), -1) << "closed with the manager";
  EXPECT_EQ(same_view->DeleteRecordWithUuid("none"), -1) << "however often it was opened";
  EXPECT_EQ(Rows("SELECT ver_id FROM version_table"), (Lines{"1"}));
}

TEST_F(DbTest, TheVolumeTableIsReadInKeyOrderAndForgetsOneRow) {
  ASSERT_EQ(Manager::Initialize(folder_), 0);
  EXPECT_EQ(Manager::DeleteUuidFromVolumeTable("c"), 0);
  EXPECT_EQ(Manager::DeleteUuidFromVolumeTable("it's none"), 0);
  std::map<std::string, std::string> volumes;
  ASSERT_EQ(Manager::EnumVolumeTable(volumes), 0);
  EXPECT_EQ(volumes, (std::map<std::string, std::string>{{"a", "/it's 100%"}, {"b", "/two"}}));
}

TEST_F(DbTest, RefusesMissingAndForeignDatabasesWithoutCreatingThem) {
  EXPECT_EQ(Manager::Initialize(folder_ / "none"), -1);
  EXPECT_EQ(Manager::Initialize((folder_ / "view" / "7").string()), -1);
  ASSERT_EQ(Manager::Initialize(folder_), 0);
  std::shared_ptr<db::ViewDBInterface> view;
  EXPECT_EQ(Manager::GetViewDB(8, view), -1);
  EXPECT_FALSE(fs::exists(folder_ / "view" / "8"));
  fs::create_directories(folder_ / "view" / "9");
  std::ofstream(folder_ / "view" / "9" / "view-db.sqlite") << "not a database, whatever its name says";
  EXPECT_EQ(Manager::GetViewDB(9, view), -1);
  Run(view_, "UPDATE config_table SET value = '4100';");
  EXPECT_EQ(Manager::GetViewDB(7, view), -1);
  EXPECT_EQ(view, nullptr);
  Run(folder_ / "syncfolder-db.sqlite", "DROP TABLE volume_table;");
  EXPECT_EQ(Manager::Initialize(folder_), -1);
}

TEST_F(DbTest, DeletingAViewFollowsNoLinks) {
  fs::create_directories(folder_ / "elsewhere");
  std::ofstream(folder_ / "elsewhere" / "precious") << "x";
  fs::create_directory_symlink(folder_ / "elsewhere", folder_ / "view" / "7" / "link");
  fs::create_directory_symlink(folder_ / "elsewhere", folder_ / "view" / "8");
  ASSERT_EQ(Manager::Initialize(folder_), 0);
  std::shared_ptr<db::ViewDBInterface> view;
  ASSERT_EQ(Manager::GetViewDB(7, view), 0);
  EXPECT_EQ(Manager::DeleteView(7), 0);
  EXPECT_EQ(Manager::DeleteView(8), 0);
  EXPECT_EQ(Manager::DeleteView(1234), 0);
  EXPECT_EQ(view->DeleteRecordWithUuid("U"), -1) << "closed before its folder went";
  EXPECT_TRUE(fs::is_empty(folder_ / "view"));
  EXPECT_TRUE(fs::exists(folder_ / "elsewhere" / "precious"));
}

}  // namespace
