#include <fcntl.h>
#include <malloc.h>
#include <sys/file.h>

#include "base/file_descriptor.h"
#include "db-util/execute.h"
#include "user-mgr/access.h"
#include "user-mgr/user_manager_fixture.h"

namespace user_mgr {
namespace {

class SelfCheck : public UserManagerFixture {
 protected:
  void SetUp() override {
    UserManagerFixture::SetUp();
    ASSERT_EQ(UserManager::Initialize(File()), 0);
  }

  // Normal users 1 to `count` with falling view ids; user N has uid N, and a session and a task of its own.
  void AddNormalUsers(unsigned count) const {
    Write("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
          std::to_string(count) +
          ")"
          "INSERT INTO user_table (id, view_id, attribute, name, uid, gid, user_type, watch_path)"
          "SELECT i, 10000 - i, 0, 'user' || i, i, 100, 0, '' FROM n;"
          "INSERT INTO session_table (uid, sess_id) SELECT id, 's' || id FROM user_table;"
          "INSERT INTO backup_task_table (session) SELECT sess_id FROM session_table;");
  }
  void AddAccount(unsigned uid) { accounts_.Add("user" + std::to_string(uid), uid); }

  void ExpectRemoved(std::list<ViewId> views) {
    std::list<ViewId> removed = {99};  // appended to, never replaced
    views.push_front(99);
    EXPECT_EQ(UserManager::SelfCheck(removed), 0);
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

  tests::FakeAccounts& accounts_ = machine_.accounts;
};

TEST_F(SelfCheck, BothServicesFailWithTheTextOfLdap) {
  Write("INSERT INTO user_table VALUES (1, 0, 1, 'ldap', 1, 1, 2, ''), (2, 0, 2, 'domain', 2, 2, 3, '');");
  const std::string text = "UserManager::CheckLdapService DeleteUserByUserType fail ";
  machine_.services.ldap = false;
  ExpectRefusal("DELETE ON user_table", {text + "(LDAP)"}, "CheckLdapService");
  machine_.services.ldap = true;
  machine_.services.domain = false;
  ExpectRefusal("DELETE ON user_table", {text + "(DOMAIN)"}, "CheckDomainService");
}

// A failed check: its transaction is open, with what the users before the failing one got.
TEST_F(SelfCheck, NoRollbackAfterAFailedCheck) {
  AddNormalUsers(3);
  AddAccount(1);
  accounts_.failing = {3};
  const std::string schema = Read("SELECT * FROM sqlite_master");
  std::list<ViewId> removed;
  for (int times = 0; times < 2; ++times) EXPECT_EQ(UserManager::SelfCheck(removed), -1);
  EXPECT_TRUE(removed.empty()) << "the second user may come back";
  EXPECT_EQ(sink_.Count("[ERROR] user-mgr(N): UserManager::SelfCheck BeginTransaction fail"), 1);
  EXPECT_EQ(Users(), "user1|9999|0|100|,user2|9998|0|100|,user3|9997|0|100|,");
  EXPECT_EQ(UserManager::EndTransaction(), 0);
  EXPECT_EQ(Users(), "user1|9999|0|100|/StratoFolder,user3|9997|0|100|,");
  EXPECT_EQ(Read("SELECT * FROM sqlite_master"), schema);
}

TEST_F(SelfCheck, ThePagedScanPassesOverRowsBehindRemovedOnes) {
  AddNormalUsers(2500);
  const std::string schema = Read("SELECT * FROM sqlite_master");
  std::list<ViewId> expected;  // in the order of the table, whatever indexes the check makes
  for (ViewId i = 1; i <= 2500; ++i) {
    if (i <= 1000 || i > 2000) expected.push_back(10000 - i);
  }
  ExpectRemoved(expected);
  EXPECT_EQ(Read("SELECT min(id), max(id), count(*) FROM user_table"), "1001|2000|1000,");
  EXPECT_EQ(Read("SELECT * FROM sqlite_master"), schema);
}

// A user that appears while the last one of a page is checked is seen only if another page is read.
TEST_F(SelfCheck, AFullPageIsFollowedByAnother) {
  for (const unsigned count : {999U, 1000U}) {
    Write("DELETE FROM user_table; DELETE FROM session_table; DELETE FROM backup_task_table;");
    AddNormalUsers(count);
    Write("UPDATE user_table SET user_type = 1 WHERE id = 9;");  // left out of the page, but one of its rows
    for (unsigned uid = 1; uid <= count; ++uid) AddAccount(uid);
    accounts_.on_question = [count](uid_t uid) {
      const std::string add = "INSERT INTO user_table VALUES (5000, 0, 7, 'new', 5000, 1, 0, '');";
      EXPECT_TRUE(uid != count || db_util::Execute(Access::db(), add).ok());
    };
    ExpectRemoved(std::list<ViewId>(count == 1000 ? 1 : 0, 7));
  }
}

TEST_F(SelfCheck, LongTextsAreNotAllHeldAtOnce) {
  AddNormalUsers(20);
  Write("UPDATE user_table SET watch_path = printf('%.*c', 8000000, 'x');");
  for (unsigned uid = 1; uid <= 20; ++uid) AddAccount(uid);
  UserList users;
  EXPECT_EQ(UserManager::EnumAllUser(users), -1);
  EXPECT_EQ(
      sink_.Count("[ERROR] user-mgr(N): UserManager::EnumUser: the rows hold more than 134217728 bytes\n"),
      1);
  accounts_.on_question = [](uid_t) { EXPECT_LT(mallinfo2().uordblks + mallinfo2().hblkhd, 64U << 20U); };
  ExpectRemoved({});
}

// A check that waits for the lock ends with the time that a test may take.
TEST_F(SelfCheck, RemovalOfAnAccountsUserDoesNotTakeTheLock) {
  AddNormalUsers(1);
  Write("UPDATE user_table SET name = CAST(x'63E9' AS TEXT);");  // no UTF-8, but a name all the same
  const base::FileDescriptor other(open(Path("lock").c_str(), O_RDWR | O_CLOEXEC));
  accounts_.on_question = [&](uid_t) {
    EXPECT_EQ(flock(other.get(), LOCK_EX | LOCK_NB), 0);  // behind the page's reading
  };
  ExpectRemoved({9999});
}

TEST_F(SelfCheck, EveryRefusalHasItsOwnLineAndRemovesNobody) {
  AddNormalUsers(2);
  const std::string user = "Failed to CheckLocalUser user1\n";
  accounts_.Add("user2", 1, 5);
  ExpectRefusal("DELETE ON session_table", {"remove user user1 sesion failed \n", user});
  ExpectFailure({"sqlite3_exec: UNIQUE constraint failed: user_table.name (19)\n",
                 "update local user name failed \n", user});
  accounts_.Add("user1", 1, 5);
  ExpectRefusal("UPDATE OF gid ON user_table",
                {"UserManager::CheckNormalUser fail to UpdateUserAttrAndGid user1\n", user});
  accounts_.accounts.erase(1);
  ExpectRefusal("DELETE ON user_table",
                {"UserManager::CheckNormalUser fail to RemoveUserNoTransaction user1\n", user});
  accounts_.Add("user1", 1);
  Write("UPDATE user_table SET watch_path = '/o'; DELETE FROM user_table WHERE id = 2;");
  ExpectRefusal("UPDATE OF watch_path ON user_table",
                {"UserManager::CheckNormalUser failed to update watch path '/o'' to '/StratoFolder'", user});
  Write("UPDATE user_table SET name = '@s', user_type = 1;");
  const std::string share = "Failed to CheckShareUser s\n";
  ExpectRefusal("DELETE ON user_table", {"UserManager::RemoveShareUser fail to remove share user 's'\n",
                                         "UserManager::CheckShareUser fail to RemoveShareUser s\n", share});
  machine_.shares.shares = {{"s", "/s", false, {}}};
  ExpectRefusal("UPDATE OF watch_path ON user_table",
                {"UserManager::CheckShareUser fail to update watch path /s to share 's'.\n", share});
  machine_.volumes.failing_calls = {"ListMountPoints"};
  ExpectFailure({"UserManager::SelfCheck fail to read the mount points\n", share});
  EXPECT_EQ(Users(), "@s|9999|0|100|/o,");
  Write("DROP TABLE user_table; CREATE TABLE user_table (mail);");
  ExpectFailure({"UserManager::EnumUser: sqlite3_prepare_v2(1): no such column: name\n",
                 "Failed to enumerate users\n"});
}

}  // namespace
}  // namespace user_mgr
