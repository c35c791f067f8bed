#include "tests/support/mount_namespace.h"
#include "user-mgr/user_manager_fixture.h"

namespace user_mgr {
namespace {

class Lifecycle : public UserManagerFixture {
 protected:
  // Of the tables that a new database has rows in.
  std::string Rows() const {
    return Read(
        "SELECT key, value, '' FROM config_table UNION ALL SELECT * FROM rotate_setting_table UNION ALL "
        "SELECT name, context, attribute FROM profile_table");
  }
};

TEST_F(Lifecycle, InitializeMakesWhatAnUpgradeEndsInKeepsWhatIsThereAndIsANoOpWhenOpen) {
  ASSERT_EQ(UserManager::Initialize(File()), 0);
  const package::PackagePaths upgraded = tests::PackageIn(Path("package"));
  tests::WriteFixture(tests::kVersions.back(), "uuid", "", upgraded);
  EXPECT_EQ(tests::SchemaOf(File()), tests::SchemaOf(upgraded.user));
  EXPECT_EQ(Rows(), "version|" + std::to_string(tests::kVersions.back()) +
                        "|,branch|master|,view_id|1|,0|32|fifo,"
                        "internal for enc share|{\"filtered_max_name_length\":143}|7,");
  EXPECT_EQ(UserManager::Initialize(Path("other")), 0);
  EXPECT_FALSE(std::filesystem::exists(Path("other")));
  UserManager::Destroy();
  UserManager::Destroy();

  const std::string rows = "version|7|,branch|7|,view_id|7|,0|5|fifo,mine|{}|";
  Write(
      "UPDATE config_table SET value = '7'; UPDATE rotate_setting_table SET rotate_cnt = 5;"
      "UPDATE profile_table SET name = 'mine', context = '{}', attribute = 2;");
  ASSERT_EQ(UserManager::Initialize(File()), 0);
  EXPECT_EQ(Rows(), rows + "2,");
  UserManager::Destroy();

  Write("UPDATE profile_table SET attribute = 5;");  // no default profile any more
  ASSERT_EQ(UserManager::Initialize(File()), 0);
  EXPECT_TRUE(Rows().starts_with(rows + "5,internal"));
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
  const std::string text = folder_.Write("text", std::string(2000, 'x'));
  expect_failure(text, "sqlite3_exec: file is not a database (26)\n");
  Write("CREATE TABLE profile_table (id, name, context);");
  expect_failure(File(), "sqlite3_prepare_v2(1): no such column: attribute\n");
  Write(
      "DROP TABLE profile_table; CREATE TABLE profile_table (id, name, context, attribute);"
      "CREATE TRIGGER t BEFORE INSERT ON profile_table BEGIN SELECT raise(ABORT, 'full'); END;");
  expect_failure(File(), "Fail to insert default server profile: full (19)\n");
  Write("DROP TRIGGER t;");
  // The lock lies in a folder where everybody may put something.
  for (const auto& [plant, why] : {std::pair("ln -s victim ", "Too many levels of symbolic links"),
                                   {"rm lock; mkfifo ", "Invalid argument"}}) {
    ASSERT_TRUE(tests::Run("cd " + folder_.path() + "; " + plant + "lock"));
    expect_failure(File(), std::string("UserManager::Initialize: open: ") + why + "\n");
  }
  std::filesystem::remove(Path("lock"));
  EXPECT_EQ(UserManager::Initialize(File()), 0);
}

TEST_F(Lifecycle, TransactionsReportSqliteAndAreRolledBackByDestroy) {
  ASSERT_EQ(UserManager::Initialize(File()), 0);
  const std::string rows = Rows();
  EXPECT_EQ(UserManager::EndTransaction(), -1);
  EXPECT_EQ(UserManager::RollbackTransaction(), -1);
  for (const auto& undo : {UserManager::RollbackTransaction, +[] { return UserManager::Destroy(), 0; }}) {
    ASSERT_EQ(UserManager::BeginTransaction(), 0);
    ASSERT_EQ(UserManager::SetRotateSetting({{0, 9, "smart"}}), 0);
    EXPECT_EQ(UserManager::BeginTransaction(), -1);
    ASSERT_EQ(undo(), 0);
  }
  EXPECT_EQ(Rows(), rows);
  const auto expect_lines = [this](int count, const std::string& text) {
    EXPECT_EQ(sink_.Count("[ERROR] user-mgr(N): UserManager::" + text + " (1)"), count);
  };
  expect_lines(1, "EndTransaction failed: cannot commit - no transaction is active");
  expect_lines(1, "RollbackTransaction failed: cannot rollback - no transaction is active");
  expect_lines(2, "BeginTransaction failed: cannot start a transaction within a transaction");
}

}  // namespace
}  // namespace user_mgr
