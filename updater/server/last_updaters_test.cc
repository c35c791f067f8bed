#include <algorithm>

#include "updater/server/split_fixture.h"

namespace {

using updater::server::SvrUpdater4000to4060;
using updater::server::SvrUpdater4060to4100;
using updater::server::SvrUpdater4100to4150;

class LastUpdatersTest : public tests::SplitTest {};

TEST_F(LastUpdatersTest, RotationPolicyComesFromTheRowOfTheView) {
  Exec(user_, "INSERT INTO user_table VALUES (3, 'bob', 1027, 0, 3, 0);");
  Reach(4000);
  Exec(user_, "UPDATE rotate_setting_table SET rotate_policy = 'smart' WHERE view_id = 2;");
  Exec(View("3"), "INSERT INTO config_table VALUES ('rotate_policy', 'kept');");
  ASSERT_EQ(Run<SvrUpdater4000to4060>(), 0);
  EXPECT_EQ(Config(View("1"), "'rotate_policy'"), "rotate_policy=fifo ");
  EXPECT_EQ(Config(View("2"), "'rotate_policy'"), "rotate_policy=smart ");
  EXPECT_EQ(Config(View("3"), "'rotate_policy'"), "rotate_policy=kept ");
}

TEST_F(LastUpdatersTest, UnreadableUserTypesAndMissingViewsAreReported) {
  Reach(4000);
  std::filesystem::remove_all(view_ + "/2");
  EXPECT_EQ(Run<SvrUpdater4000to4060>(), -1);
  EXPECT_EQ(
      sink_.Texts().front(),
      "Strato Folder Updater(N): sqlite3_exec(ATTACH DATABASE '" +
          std::string(folder_).replace(folder_.find('\''), 1, "''") +
          "/view.bak/2/view-db.sqlite' AS view_db;INSERT OR IGNORE INTO view_db.config_table (key, value) "
          "VALUES \t('rotate_policy', \t(SELECT rotate_policy FROM user_db.rotate_setting_table WHERE view_id "
          "= 2));DETACH DATABASE view_db;): unable to open database: " +
          View("2") + " (14)\n");
  EXPECT_TRUE(Logged("Failed to update rotate_cnt for view 2\n"));
  EXPECT_TRUE(Logged("Failed to update rotate count for view 2\n"));
  Exec(user_, "ALTER TABLE user_table DROP COLUMN user_type;");
  EXPECT_EQ(Run<SvrUpdater4000to4060>(), -1);
  EXPECT_EQ(sink_.Count("sqlite3_prepare_v2: no such column: user_type (1)\n"), 1);
  EXPECT_TRUE(Logged("failed to get user type of view 1\n"));
}

// The connection is taken down in the middle; the version write behind it needs the paths again.
TEST_F(LastUpdatersTest, LogDatabaseGetsItsVacuumModeInMidRun) {
  Reach(4060);
  ASSERT_EQ(Run<SvrUpdater4060to4100>(), 0);
  EXPECT_EQ(Column(log_, "PRAGMA auto_vacuum;"), "1 ");
  for (const std::string& path : {data_, log_, user_, client_, View("2")}) {
    EXPECT_EQ(Config(path, "'version'"), "version=4100 ");
  }
  EXPECT_TRUE(Logged("Upgrade to '(master, 4100) ' successfully\n"));
  EXPECT_EQ(out_.str().find("4100"), std::string::npos);
}

TEST_F(LastUpdatersTest, RebuiltViewHasAllItsIndexesAndSplitsTheAttribute) {
  Reach(4100);
  Exec(View("2"),
       "INSERT INTO node_table (node_id, attribute, name, path) VALUES (9, 1, 'e', '/e');"
       "UPDATE node_table SET attribute = 0 WHERE node_id = 3;"
       "INSERT INTO node_table (node_id, attribute, name, path) VALUES (10, 2, 'f', '/f');");
  ASSERT_EQ(Run<SvrUpdater4100to4150>(), 0);
  EXPECT_EQ(Column(View("2"), "SELECT node_id || ':' || removed || file_type FROM node_table;"),
            "3:00 4:11 9:10 10:01 ");
  EXPECT_EQ(Column(View("2"), "SELECT ver_id || ':' || removed || file_type || file_id FROM version_table;"),
            "14:012 ");
  EXPECT_EQ(
      Indexes(View("2")),
      "config_table_key_index node_table_file_type_index node_table_max_id_index node_table_name_index "
      "node_table_node_id_index node_table_parent_id_index node_table_path_index node_table_path_index_case "
      "node_table_removed_index node_table_sync_id_index temp_table_key_index tree_table_distance_index "
      "tree_table_node_id_index tree_table_node_parent_index tree_table_parent_id_index "
      "version_table_file_type_index version_table_node_id_index version_table_removed_index "
      "version_table_sess_id_index version_table_sync_id_index version_table_ver_id_index ");
  EXPECT_EQ(Column(View("2"), "SELECT tbl_name FROM sqlite_master WHERE tbl_name LIKE '%_old';"), "");
}

void MacAttrUuid(sqlite3_context* context, int /*count*/, sqlite3_value** /*values*/) {
  sqlite3_result_text(context, "mac", -1, SQLITE_STATIC);
}
void MacAttrFileId(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  sqlite3_result_int(context, sqlite3_value_type(values[0]) == SQLITE_NULL ? 0 : 42);
}

TEST_F(LastUpdatersTest, DeletedVersionsAreQueuedForRemoval) {
  Reach(4100);
  ASSERT_EQ(Run<SvrUpdater4100to4150>(), 0);
  db_util::Database db;
  ASSERT_EQ(db_util::OpenDatabase(View("1"), db), 0);
  const auto add = [&db](const char* name, void (*function)(sqlite3_context*, int, sqlite3_value**)) {
    return sqlite3_create_function(db.get(), name, 1, SQLITE_UTF8, nullptr, function, nullptr, nullptr);
  };
  ASSERT_EQ(add("get_mac_attr_uuid", MacAttrUuid), SQLITE_OK);
  ASSERT_EQ(add("get_mac_attr_file_id", MacAttrFileId), SQLITE_OK);
  ASSERT_EQ(db_util::ExecScript(db.get(), "DELETE FROM version_table WHERE ver_id IN (11, 13);"), 0);
  db.reset();
  const std::string uuid = fake_.volumes.everywhere.ext_uuid;
  EXPECT_EQ(Column(View("1"), "SELECT uuid || '-' || file_id FROM remove_file_table;"),
            uuid + "-3 mac-42 " + uuid + "-2 ");
}

TEST_F(LastUpdatersTest, FailingRebuildKeepsTheViewAndTheOnesBefore) {
  Reach(4100);
  Exec(View("2"), "ALTER TABLE version_table DROP COLUMN committer_sess_id;");
  EXPECT_EQ(Run<SvrUpdater4100to4150>(), -1);
  EXPECT_EQ(Column(View("1"), "SELECT count(*) FROM pragma_table_info('node_table') WHERE name = 'removed';"),
            "1 ");
  EXPECT_EQ(Column(View("2"), "SELECT attribute FROM node_table;"), "2 3 ");
  const std::vector<std::string> lines = sink_.Texts();
  EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
    return line.starts_with("Strato Folder Updater(N): Failed to exec ATTACH DATABASE '") &&
           line.ends_with("END;DETACH DATABASE view_db;\n");
  }));
  EXPECT_TRUE(Logged("Failed to update view db for view 2\n"));
}

}  // namespace
