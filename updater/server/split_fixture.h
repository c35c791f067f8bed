// A small volume at 3300 in a folder with an awkward name, and the units that bring it further, for tests.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "db-util/database.h"
#include "db-util/query.h"
#include "logger/recording_sink.h"
#include "tests/support/fake_platform.h"
#include "updater/server/svr_updater_3300to3400.h"
#include "updater/server/svr_updater_3400to3450.h"
#include "updater/server/svr_updater_3450to4000.h"
#include "updater/server/svr_updater_4000to4060.h"
#include "updater/server/svr_updater_4060to4100.h"
#include "updater/server/svr_updater_4100to4150.h"

namespace tests {

inline constexpr const char* kSharedSchema = R"(
  CREATE TABLE config_table (key VARCHAR PRIMARY KEY ON CONFLICT REPLACE, value VARCHAR DEFAULT '');
  INSERT INTO config_table VALUES ('version', '3300'), ('branch', 'master'), ('sync_id', '77');)";

inline constexpr const char* kDataSchema = R"(
  INSERT INTO config_table VALUES ('row1', 'r'), ('serial', 's'), ('file_id', '9'), ('delta_file_id', '8'),
    ('node_delta_file_id', '6'), ('rotate_cnt', '32'), ('remove_repo', '0'), ('rotate_span', '100');
  CREATE TABLE node_table (node_id INTEGER PRIMARY KEY AUTOINCREMENT, parent_id, view_id INTEGER, attribute, max_id,
    sync_id, ver_cnt, ctime, mtime, name, path, data, v_base_id, v_file_id, v_file_size, v_file_hash, v_mtime,
    v_exec_bit, v_uid, v_gid, v_mode, v_sess_id, v_client_id, v_mac_attr, v_acl_attribute, v_acl_hash,
    v_share_priv_disabled, v_share_priv_deny_list, v_share_priv_ro_list, v_share_priv_rw_list, v_share_priv_hash,
    node_delta_file_id);
  CREATE TABLE version_table (ver_id INTEGER PRIMARY KEY AUTOINCREMENT, node_id INTEGER, attribute, sync_id, base_id,
    ctime, file_id, file_size, file_hash, mtime, exec_bit, uid, gid, sess_id, client_id, win_attr, linux_attr,
    mac_attr, plat_attr, mode, acl_attribute, acl_hash, share_priv_disabled, share_priv_deny_list,
    share_priv_ro_list, share_priv_rw_list, share_priv_hash);
  CREATE TABLE tree_table (node_id INTEGER, parent_id INTEGER, distance INTEGER);
  CREATE TABLE file_table (file_id INTEGER PRIMARY KEY, attribute, ref_cnt, size, hash);
  CREATE TABLE delta_table (node_id, from_id, to_id, attribute, delta_file_id);
  INSERT INTO node_table (node_id, view_id, attribute, ver_cnt, name, path, v_file_id, v_mac_attr, node_delta_file_id)
    VALUES (1, 1, 0, 5, 'a', '/a', 3, 'x=1', 0), (2, 1, 1, 5, 'b', '/b', 0, '', 4), (3, 2, 2, 5, 'c', '/c', 2, NULL, 0),
           (4, 2, 3, 5, 'd', '/d', 0, NULL, 0);
  INSERT INTO version_table (ver_id, node_id, attribute, file_id, mac_attr)
    VALUES (11, 1, 0, 3, 'x=1'), (12, 2, 1, 0, ''), (13, 2, 1, 2, NULL), (14, 3, 2, 2, 'y=2');
  INSERT INTO tree_table VALUES (1, 0, 1), (3, 0, 1), (3, 3, 0);
  INSERT INTO file_table VALUES (2, 0, 1, 10, 'h2'), (3, 0, 1, 10, 'h3');
  INSERT INTO delta_table VALUES (1, 2, 3, 0, 4);)";

// View 1 is a user's, view 2 a share's.
inline constexpr const char* kUserSchema = R"(
  CREATE TABLE user_table (id INTEGER PRIMARY KEY, name, uid INTEGER, attribute INTEGER, view_id INTEGER,
    user_type INTEGER);
  INSERT INTO user_table VALUES (1, 'alice', 1026, 0, 1, 0), (2, '@share', 0, 8, 2, 1);
  CREATE TABLE session_table (session);
  CREATE TABLE profile_table (id INTEGER PRIMARY KEY AUTOINCREMENT, name VARCHAR NOT NULL, context VARCHAR);
  CREATE TABLE profile_apply_table (profile_id INTEGER, user_id INTEGAR,
    PRIMARY KEY (profile_id, user_id) ON CONFLICT IGNORE);
  INSERT INTO profile_table VALUES (4, 'mine', '{}');
  INSERT INTO profile_apply_table VALUES (4, 1);)";

inline constexpr const char* kClientSchema = R"(
  CREATE TABLE progress_table (view_id INTEGER, sync_id INTEGER); INSERT INTO progress_table VALUES (1, 55);)";

class SplitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_ + "/rm");
    for (const std::string& path : {data_, log_, user_, client_}) Exec(path, kSharedSchema);
    Exec(data_, kDataSchema);
    Exec(user_, kUserSchema);
    Exec(client_, kClientSchema);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  static void Exec(const std::string& path, const std::string& sql) {
    db_util::Database db;
    ASSERT_EQ(db_util::OpenDatabase(path, db), 0);
    ASSERT_EQ(db_util::ExecScript(db.get(), sql), 0) << sql;
  }

  // The first column of every row, each followed by a blank.
  static std::string Column(const std::string& path, const std::string& query) {
    db_util::Database db;
    EXPECT_EQ(db_util::OpenDatabase(path, db, db_util::OpenMode::kReadOnly), 0);
    std::string text;
    const auto append = [&text](sqlite3_stmt* row) {
      text += db_util::ColumnText(row, 0) + " ";
      return true;
    };
    const db_util::QueryResult result = db_util::ForEachRow(db.get(), query, append);
    EXPECT_TRUE(result.ok()) << query << ": " << result.message;
    return text;
  }
  static std::string Config(const std::string& path, const std::string& keys) {
    return Column(path,
                  "SELECT key || '=' || value FROM config_table WHERE key IN (" + keys + ") ORDER BY key;");
  }
  static std::string Indexes(const std::string& path) {
    return Column(
        path,
        "SELECT name FROM sqlite_master WHERE type = 'index' AND name NOT LIKE 'sqlite%' ORDER BY name;");
  }

  template <typename Unit>
  int Run() {
    return Unit(context_, data_, log_, user_, client_, view_, file_).Update();
  }
  int RunSplit() {
    return updater::server::SvrUpdater3300to3400(context_, folder_, data_, log_, user_, client_, view_, file_)
        .Update();
  }

  // Runs the units up to a version.
  void Reach(int version) {
    ASSERT_EQ(RunSplit(), 0);
    ASSERT_TRUE(version < 3450 || Run<updater::server::SvrUpdater3400to3450>() == 0);
    ASSERT_TRUE(version < 4000 || Run<updater::server::SvrUpdater3450to4000>() == 0);
    ASSERT_TRUE(version < 4060 || Run<updater::server::SvrUpdater4000to4060>() == 0);
    ASSERT_TRUE(version < 4100 || Run<updater::server::SvrUpdater4060to4100>() == 0);
    sink_.Clear();
  }

  [[nodiscard]] std::string View(const std::string& name) const {
    return view_ + "/" + name + "/view-db.sqlite";
  }
  [[nodiscard]] std::string File(const std::string& uuid) const {
    return file_ + "/" + uuid + "/file-db.sqlite";
  }
  [[nodiscard]] bool Logged(const std::string& text) const {
    return sink_.Count("Strato Folder Updater(N): " + text) == 1;
  }

  const std::string folder_ = ::testing::TempDir() + "it's 100%s %Q " + std::to_string(getpid());
  const std::string data_ = folder_ + "/syncfolder-db.sqlite.bak";
  const std::string log_ = folder_ + "/log-db.sqlite.bak";
  const std::string user_ = folder_ + "/user-db.sqlite.bak";
  const std::string client_ = folder_ + "/client-db.sqlite.bak";
  const std::string view_ = folder_ + "/view.bak";
  const std::string file_ = folder_ + "/file.bak";
  FakePlatform fake_;
  std::ostringstream out_;
  updater::UpdaterContext context_{folder_ + "/scratch", out_, fake_.platform()};
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

}  // namespace tests
