#include "user-mgr/user_manager_fixture.h"

namespace user_mgr {
namespace {

using Lifecycle = UserManagerFixture;

constexpr char kConfig[] = "SELECT key, value FROM config_table ORDER BY key";
constexpr char kProfiles[] = "SELECT name, context, attribute FROM profile_table";

TEST_F(Lifecycle, InitializeMakesTheSchemaAndItsFirstRows) {
  ASSERT_EQ(UserManager::Initialize(File()), 0);
  EXPECT_EQ(Read(kConfig), "branch|master,version|4150,view_id|1");
  EXPECT_EQ(Read("SELECT * FROM rotate_setting_table"), "0|32|fifo");
  EXPECT_EQ(Read(kProfiles), "internal for enc share|{\"filtered_max_name_length\":143}|7");
  EXPECT_EQ(
      Read(
          "SELECT m.name, group_concat(c.name || ' ' || c.type || substr(' !', 1, 2 * c.\"notnull\") || ifnull(' ' || c.dflt_value, ''), ';') FROM sqlite_master AS m, pragma_table_info(m.name) AS c WHERE m.type = 'table' AND m.name NOT LIKE 'sqlite%' GROUP BY m.rowid ORDER BY m.rowid"),
      "user_table|id INTEGER;attribute INTEGER;view_id INTEGER;name VARCHAR;uid INTEGER;gid INTEGER;user_type INTEGER !;watch_path VARCHAR !,session_table|uid INTEGER;attribute INTEGER 0;group_id INTEGER;client VARCHAR;ip VARCHAR;ctime DATETIME strftime('%s','now');sess_id VARCHAR;client_type INTEGER 0;client_platform VARCHAR 'Unknown',backup_task_table|session VARCHAR;view_id INTEGER;relative_path VARCHAR;is_readonly INTEGER,config_table|key VARCHAR;value VARCHAR,profile_table|id INTEGER;name VARCHAR !;context VARCHAR ! '{}';attribute INTEGER 0,profile_apply_table|profile_id INTEGER;user_id INTEGAR,profile_apply_view_table|profile_id INTEGER;view_id INTEGER,rotate_setting_table|view_id INTEGER;rotate_cnt INTEGER;rotate_policy VARCHAR");
  EXPECT_EQ(
      Read(
          "SELECT m.name, m.tbl_name, group_concat(i.name, '+') FROM sqlite_master AS m, pragma_index_info(m.name) AS i WHERE m.type = 'index' GROUP BY m.rowid ORDER BY m.name"),
      "profile_apply_id_idx|profile_apply_table|profile_id,profile_apply_uid_idx|profile_apply_table|user_id,profile_apply_view_id_idx|profile_apply_view_table|profile_id,profile_apply_view_vid_idx|profile_apply_view_table|view_id,profile_id_idx|profile_table|id,session_task_index|backup_task_table|session,sqlite_autoindex_config_table_1|config_table|key,sqlite_autoindex_profile_apply_table_1|profile_apply_table|profile_id+user_id,sqlite_autoindex_profile_apply_view_table_1|profile_apply_view_table|profile_id+view_id,sqlite_autoindex_session_table_1|session_table|sess_id,sqlite_autoindex_user_table_1|user_table|name");
  // What happens to a key that is there already.
  Write(
      "INSERT INTO rotate_setting_table VALUES (0, 9, 'x'); INSERT INTO profile_apply_table VALUES (1, 1), (1, 1); INSERT INTO profile_apply_view_table VALUES (1, 1), (1, 1);");
  EXPECT_EQ(Read("SELECT rotate_cnt FROM rotate_setting_table"), "9");
}

TEST_F(Lifecycle, InitializeKeepsWhatIsThereAndIsANoOpWhenOpen) {
  ASSERT_EQ(UserManager::Initialize(File()), 0);
  EXPECT_EQ(UserManager::Initialize(Path("other")), 0);
  EXPECT_FALSE(std::filesystem::exists(Path("other")));
  UserManager::Destroy();
  UserManager::Destroy();

  Write(
      "UPDATE config_table SET value = '7'; UPDATE rotate_setting_table SET rotate_cnt = 5;UPDATE profile_table SET name = 'mine', attribute = 2;");
  ASSERT_EQ(UserManager::Initialize(File()), 0);
  EXPECT_EQ(Read(kConfig), "branch|7,version|7,view_id|7");
  EXPECT_EQ(Read("SELECT * FROM rotate_setting_table"), "0|5|fifo");
  EXPECT_EQ(Read(kProfiles), "mine|{\"filtered_max_name_length\":143}|2");
  UserManager::Destroy();

  Write("UPDATE profile_table SET attribute = 5;");  // no default profile any more
  ASSERT_EQ(UserManager::Initialize(File()), 0);
  EXPECT_EQ(Read("SELECT count(*) FROM profile_table"), "2");
}

TEST_F(Lifecycle, AFailedInitializeLeavesTheManagerClosed) {
  const auto expect_failure = [this](const std::string& path, const std::string& line) {
    EXPECT_EQ(UserManager::Initialize(path), -1);
    EXPECT_EQ(sink_.Count("[ERROR] user-mgr(N): " + line), 1) << line;
    UserList users;
    EXPECT_EQ(UserManager::EnumAllUser(users), -1);
    EXPECT_EQ(UserManager::BeginTransaction(), -1);
  };
  expect_failure("", "sqlite3_open(): unable to open database file (14)\n");
  Write("CREATE TABLE profile_table (id, name, context);");
  expect_failure(File(), "sqlite3_prepare_v2(1): no such column: attribute\n");
  Write(
      "DROP TABLE profile_table; CREATE TABLE profile_table (id, name, context, attribute);CREATE TRIGGER t BEFORE INSERT ON profile_table BEGIN SELECT raise(ABORT, 'full'); END;");
  expect_failure(File(), "Fail to insert default server profile: full (19)\n");
  Write("DROP TRIGGER t;");
  EXPECT_EQ(UserManager::Initialize(File()), 0);
}

TEST_F(Lifecycle, TransactionsReportSqliteAndAreRolledBackByDestroy) {
  ASSERT_EQ(UserManager::Initialize(File()), 0);
  const auto rename = [] { return UserManager::SetRotateSetting({{0, 9, "smart"}}); };
  EXPECT_EQ(UserManager::EndTransaction(), -1);
  EXPECT_EQ(UserManager::RollbackTransaction(), -1);
  ASSERT_EQ(UserManager::BeginTransaction(), 0);
  EXPECT_EQ(UserManager::BeginTransaction(), -1);
  ASSERT_EQ(rename(), 0);
  ASSERT_EQ(UserManager::RollbackTransaction(), 0);
  ASSERT_EQ(UserManager::BeginTransaction(), 0);
  ASSERT_EQ(rename(), 0);
  UserManager::Destroy();
  EXPECT_EQ(Read("SELECT rotate_cnt FROM rotate_setting_table"), "32");
  EXPECT_EQ(
      sink_.Texts(),
      (std::vector<std::string>{
          "[ERROR] user-mgr(N): UserManager::EndTransaction failed: cannot commit - no transaction is active (1)",
          "[ERROR] user-mgr(N): UserManager::RollbackTransaction failed: cannot rollback - no transaction is active (1)",
          "[ERROR] user-mgr(N): UserManager::BeginTransaction failed: cannot start a transaction within a transaction (1)"}));
}

}  // namespace
}  // namespace user_mgr
