#include <fcntl.h>
#include <sys/file.h>

#include <chrono>
#include <functional>
#include <future>

#include "user-mgr/access.h"
#include "user-mgr/user_manager_fixture.h"

namespace user_mgr {
namespace {

class SelfCheck : public UserManagerFixture {
 protected:
  // Accounts that let a test act in the middle of the check.
  class HookedAccounts : public tests::FakeAccounts {
   public:
    std::function<void(uid_t)> hook = [](uid_t) {};
    platform::Lookup FindByUid(uid_t uid, platform::Account& account) override {
      hook(uid);
      return FakeAccounts::FindByUid(uid, account);
    }
  };

  void SetUp() override {
    UserManagerFixture::SetUp();
    UserManager::Configure(platform_, Path("lock"));
    ASSERT_EQ(UserManager::Initialize(File()), 0);
  }

  void AddUsers(const std::string& rows) const {
    Write("INSERT INTO user_table (view_id, attribute, name, uid, gid, user_type, watch_path) VALUES " +
          rows);
  }
  // Normal users 1 to `count` with falling view ids; user N has uid N, and a session and a task of its own.
  void AddNormalUsers(int count) const {
    Write("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
          std::to_string(count) +
          ")"
          "INSERT INTO user_table (id, view_id, attribute, name, uid, gid, user_type, watch_path)"
          "SELECT i, 10000 - i, 0, 'user' || i, i, 100, 0, '' FROM n;"
          "INSERT INTO session_table (uid, sess_id) SELECT id, 's' || id FROM user_table;"
          "INSERT INTO backup_task_table (session) SELECT sess_id FROM session_table;");
  }
  void AddAccount(unsigned uid) { accounts_.Add("user" + std::to_string(uid), uid); }
  void AddShare(const std::string& name, const std::string& path) {
    machine_.shares.shares.push_back({name, path, false, {}});
  }

  void ExpectRemoved(const std::list<ViewId>& views) {
    std::list<ViewId> removed = {99};  // appended to, never replaced
    EXPECT_EQ(UserManager::SelfCheck(removed), 0);
    ASSERT_FALSE(removed.empty());
    EXPECT_EQ(removed.front(), 99U);
    removed.pop_front();
    EXPECT_EQ(removed, views);
  }
  // The check fails with these errors, the last one naming the part that failed; nobody is reported as
  // removed.
  void ExpectFailure(std::vector<std::string> errors, const std::string& part = "CheckUser") {
    std::list<ViewId> removed;
    sink_.Clear();
    EXPECT_EQ(UserManager::SelfCheck(removed), -1);
    EXPECT_TRUE(removed.empty());
    errors.push_back("UserManager::SelfCheck " + part + " fail");
    for (std::string& error : errors) error.insert(0, "[ERROR] user-mgr(N): ");
    std::vector<std::string> texts = sink_.Texts();
    std::erase_if(texts, [](const std::string& text) { return !text.starts_with("[ERROR]"); });
    EXPECT_EQ(texts, errors);
    (void)UserManager::RollbackTransaction();  // open or not, depending on where the check failed
  }
  // The same while SQLite refuses an event.
  void ExpectRefusal(const std::string& event, std::vector<std::string> errors,
                     const std::string& part = "CheckUser") {
    Write("CREATE TRIGGER t BEFORE " + event + " BEGIN SELECT raise(ABORT, 'no'); END;");
    errors.insert(errors.begin(), "sqlite3_exec: no (19)\n");
    ExpectFailure(errors, part);
    Write("DROP TRIGGER t;");
  }

  std::string Users() const {
    return Read("SELECT name, view_id, attribute, gid, watch_path FROM user_table ORDER BY id");
  }
  std::string SessionsAndTasks() const {
    return Read("SELECT group_concat(sess_id) FROM session_table") + " " +
           Read("SELECT group_concat(session) FROM backup_task_table");
  }

  HookedAccounts accounts_;
  platform::Platform platform_{machine_.volumes, machine_.state_files, machine_.app_privilege,
                               accounts_,        machine_.services,    machine_.shares};
};

TEST_F(SelfCheck, BothServicesFailWithTheTextOfLdap) {
  AddUsers("(1, 0, 'ldap', 1, 1, 2, ''), (2, 0, 'domain', 2, 2, 3, '')");
  const std::string text = "UserManager::CheckLdapService DeleteUserByUserType fail ";
  machine_.services.ldap = false;
  ExpectRefusal("DELETE ON user_table", {text + "(LDAP)"}, "CheckLdapService");
  // The statement of the operation is another one.
  std::string statements;
  const auto add = [](unsigned, void* all, void*, void* sql) {
    static_cast<std::string*>(all)->append(static_cast<const char*>(sql));
    return 0;
  };
  ASSERT_EQ(sqlite3_trace_v2(Access::db(), SQLITE_TRACE_STMT, add, &statements), SQLITE_OK);
  ASSERT_EQ(UserManager::DeleteUserByUserType(static_cast<UserType>(-1)), 0);
  ExpectRemoved({});
  for (const std::string condition : {"uid in (SELECT id FROM user_table WHERE user_type = -1);",
                                      "uid IN (SELECT id FROM user_table WHERE user_type = 2);"}) {
    EXPECT_NE(statements.find("DELETE FROM session_table WHERE " + condition), std::string::npos);
  }
  machine_.services.ldap = true;
  machine_.services.domain = false;
  ExpectRefusal("DELETE ON user_table", {text + "(DOMAIN)"}, "CheckDomainService");
}

// A failed check: its transaction is open, with what the users before the failing one got.
TEST_F(SelfCheck, NoRollbackAfterAFailedCheck) {
  AddNormalUsers(2);
  AddAccount(1);
  accounts_.failing = {2};
  const std::string schema = Read("SELECT * FROM sqlite_master");
  std::list<ViewId> removed;
  EXPECT_EQ(UserManager::SelfCheck(removed), -1);
  UserRecord user;
  ASSERT_EQ(UserManager::GetUserByViewId(9999, user), 0);
  EXPECT_EQ(user.watch_path, "/StratoFolder");
  EXPECT_EQ(UserManager::SelfCheck(removed), -1);
  EXPECT_EQ(sink_.Count("[ERROR] user-mgr(N): UserManager::SelfCheck BeginTransaction fail"), 1);
  UserManager::Destroy();
  EXPECT_EQ(Users(), "user1|9999|0|100|,user2|9998|0|100|");

  ASSERT_EQ(UserManager::Initialize(File()), 0);
  EXPECT_EQ(UserManager::SelfCheck(removed), -1);
  EXPECT_EQ(UserManager::EndTransaction(), 0);
  EXPECT_EQ(Users(), "user1|9999|0|100|/StratoFolder,user2|9998|0|100|");
  EXPECT_EQ(Read("SELECT * FROM sqlite_master"), schema);
}

TEST_F(SelfCheck, ThePagedScanPassesOverRowsBehindRemovedOnes) {
  AddNormalUsers(2500);
  std::list<ViewId> removed;
  const std::string schema = Read("SELECT * FROM sqlite_master");
  ASSERT_EQ(UserManager::SelfCheck(removed), 0);
  std::list<ViewId> expected;
  for (ViewId i = 1; i <= 2500; ++i) {
    if (i <= 1000 || i > 2000) expected.push_back(10000 - i);
  }
  EXPECT_EQ(removed, expected) << "in the order of the table, whatever indexes the check makes";
  EXPECT_EQ(Read("SELECT min(id), max(id), count(*) FROM user_table"), "1001|2000|1000");
  EXPECT_EQ(Read("SELECT * FROM sqlite_master"), schema);
  EXPECT_EQ(Read("SELECT view_id FROM user_table LIMIT 2"), "8999,8998") << "still in the order of the table";
}

// A user that appears while the last one of a page is checked is seen only if another page is read.
TEST_F(SelfCheck, AFullPageIsFollowedByAnother) {
  for (const unsigned count : {999U, 1000U}) {
    Write("DELETE FROM user_table; DELETE FROM session_table; DELETE FROM backup_task_table;");
    AddNormalUsers(static_cast<int>(count));
    Write("UPDATE user_table SET user_type = 1 WHERE id = 9;");  // left out of the page, but one of its rows
    for (unsigned uid = 1; uid <= count; ++uid) AddAccount(uid);
    accounts_.hook = [count](uid_t uid) {
      if (uid != count) return;
      EXPECT_EQ(db_util::ExecScript(Access::db(),
                                    "INSERT INTO user_table VALUES (5000, 0, 7, 'new', 5000, 1, 0, '');"),
                0);
    };
    ExpectRemoved(count == 1000 ? std::list<ViewId>{7} : std::list<ViewId>{});
  }
}

TEST_F(SelfCheck, RemovalOfAnAccountsUserDoesNotTakeTheLock) {
  AddNormalUsers(1);
  Write("UPDATE user_table SET name = CAST(x'63E9' AS TEXT);");  // no UTF-8, but a name all the same
  int other = -1;
  accounts_.hook = [&](uid_t) {  // behind the page's reading
    other = open(Path("lock").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  };
  auto check = std::async(std::launch::async, [this] { ExpectRemoved({9999}); });
  EXPECT_EQ(check.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  (void)flock(other, LOCK_UN);
  check.get();
  (void)close(other);
}

TEST_F(SelfCheck, EveryRefusalHasItsOwnLineAndRemovesNobody) {
  AddNormalUsers(2);
  const std::string user = "Failed to CheckLocalUser user1\n";
  ExpectRefusal("DELETE ON user_table",
                {"UserManager::CheckNormalUser fail to RemoveUserNoTransaction user1\n", user});
  accounts_.Add("user2", 1, 5);
  ExpectRefusal("DELETE ON session_table", {"remove user user1 sesion failed \n", user});
  ExpectFailure({"sqlite3_exec: UNIQUE constraint failed: user_table.name (19)\n",
                 "update local user name failed \n", user});
  accounts_.Add("user1", 1, 5);
  ExpectRefusal("UPDATE OF gid ON user_table",
                {"UserManager::CheckNormalUser fail to UpdateUserAttrAndGid user1\n", user});
  Write("UPDATE user_table SET watch_path = '/o'; DELETE FROM user_table WHERE id = 2;");
  ExpectRefusal("UPDATE OF watch_path ON user_table",
                {"UserManager::CheckNormalUser failed to update watch path '/o'' to '/StratoFolder'", user});
  Write("UPDATE user_table SET name = '@s', user_type = 1;");
  const std::string share = "Failed to CheckShareUser s\n";
  ExpectRefusal("DELETE ON user_table", {"UserManager::RemoveShareUser fail to remove share user 's'\n",
                                         "UserManager::CheckShareUser fail to RemoveShareUser s\n", share});
  AddShare("s", "/s");
  machine_.volumes.failing_calls = {"ListMountPoints"};
  ExpectFailure({"UserManager::SelfCheck fail to read the mount points\n", share});
  EXPECT_EQ(Users(), "@s|9999|0|100|/o");
  Write("ALTER TABLE user_table RENAME TO gone;");
  ExpectFailure({"UserManager::EnumUser: sqlite3_prepare_v2(1): no such table: user_table\n",
                 "Failed to enumerate users\n"});
}

}  // namespace
}  // namespace user_mgr
