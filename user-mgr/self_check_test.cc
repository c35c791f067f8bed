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

TEST_F(SelfCheck, UsersOfAServiceThatIsOffGoUnreported) {
  AddUsers("(1, 0, 'ldap', 1, 1, 2, ''), (2, 0, 'domain', 2, 2, 3, ''), (3, 0, 'other', 3, 3, 4, '')");
  Write(
      "INSERT INTO session_table (uid, sess_id) SELECT id, 's' || id FROM user_table;"
      "INSERT INTO backup_task_table (session) SELECT sess_id FROM session_table;");
  ExpectRemoved({});
  EXPECT_EQ(Users(), "ldap|1|0|1|,domain|2|0|2|,other|3|0|3|");
  machine_.services.domain = false;
  ExpectRemoved({});
  EXPECT_EQ(Users(), "ldap|1|0|1|,other|3|0|3|");
  EXPECT_EQ(SessionsAndTasks(), "s1,s3 s1,s3");
  machine_.services.ldap = false;
  ExpectRemoved({});
  EXPECT_EQ(Users(), "other|3|0|3|");
  EXPECT_EQ(SessionsAndTasks(), "s3 s3");
}

TEST_F(SelfCheck, BothServicesFailWithTheTextOfLdap) {
  AddUsers("(1, 0, 'ldap', 1, 1, 2, ''), (2, 0, 'domain', 2, 2, 3, '')");
  const std::string head = "UserManager::DeleteUserByUserType fail to delete users of type ";
  const std::string text = "UserManager::CheckLdapService DeleteUserByUserType fail ";
  machine_.services.ldap = false;
  ExpectRefusal("DELETE ON user_table", {head + "2\n", text + "(LDAP)"}, "CheckLdapService");
  machine_.services.ldap = true;
  machine_.services.domain = false;
  ExpectRefusal("DELETE ON user_table", {head + "3\n", text + "(DOMAIN)"}, "CheckDomainService");
}

TEST_F(SelfCheck, NormalUsersFollowTheirAccounts) {
  AddNormalUsers(5);
  Write(
      "UPDATE user_table SET attribute = 9, watch_path = '/old'; UPDATE user_table SET attribute = 7 WHERE id = 5;");
  AddAccount(1);                         // as it was
  accounts_.Add("o'neil %s", 2, 100);    // renamed
  accounts_.Add("user3", 3, 555);        // another group
  accounts_.Add("user4", 4, 100, true);  // expired
  accounts_.Add("USER5", 5, 100);        // not expired any more, and case counts
  accounts_.homes = {{"user1", "/h/1"}, {"o'neil %s", "/h/o'neil"}, {"user4", "/h/4"}};
  ExpectRemoved({});
  EXPECT_EQ(
      Users(),
      "user1|9999|9|100|/h/1/StratoFolder,o'neil %s|9998|9|100|/h/o'neil/StratoFolder,"
      "user3|9997|9|555|/StratoFolder,user4|9996|11|100|/h/4/StratoFolder,USER5|9995|5|100|/StratoFolder");
  EXPECT_EQ(SessionsAndTasks(), "s1,s3,s4 s1,s3,s4");
  const std::string head =
      "[INFO] user-mgr(N): UserManager::Check Normal user user name change, remove session of user '";
  EXPECT_EQ(sink_.Texts(), (std::vector<std::string>{head + "user2'\n", head + "user5'\n"}));

  machine_.services.user_home = false;
  ExpectRemoved({});
  EXPECT_EQ(Read("SELECT DISTINCT watch_path FROM user_table"), "");
  accounts_.accounts.erase(3);
  ExpectRemoved({9997});
  EXPECT_EQ(SessionsAndTasks(), "s1,s4 s1,s4");
  EXPECT_EQ(Read("SELECT count(*) FROM user_table"), "4");
}

TEST_F(SelfCheck, ARowWithoutANameCostsNobodyARowOrAView) {
  AddUsers("(1, 0, NULL, 1, 100, 0, ''), (2, 0, '', 2, 100, 0, '')");
  accounts_.Add("", 2);
  ExpectRemoved({});
  EXPECT_EQ(Read("SELECT view_id FROM user_table ORDER BY id"), "1,2");
}

TEST_F(SelfCheck, ShareUsersFollowTheirShares) {
  const std::string names[] = {"kept", "moved", "gone", "mounted", "below",  "exempt",
                               "snap", "near",  "dhos", "demoted", "primary"};
  std::string rows = "(99, 0, 'plain', 0, 0, 1, '/s/plain')";
  for (int i = 0; i < 11; ++i) {
    rows += ", (" + std::to_string(i + 1) + ", " + (names[i] == "exempt" ? "8" : "3") + ", '@" + names[i] +
            "', 0, 0, 1, '/s/" + (names[i] == "moved" ? "MOVED" : names[i]) + "')";
    if (names[i] != "gone") AddShare(names[i], "/s/" + names[i]);
  }
  AddUsers(rows);
  for (int i = 7; i < 10; ++i) machine_.shares.shares[static_cast<std::size_t>(i)].is_replica = true;
  machine_.shares.shares[6].flags = {"dhos"};  // "near": flagged, and no replica
  machine_.shares.shares[7].flags = {"x", "dhos"};
  machine_.shares.shares[8].flags = {"share_replica_demote"};
  machine_.shares.shares[9].flags = {"other"};
  machine_.volumes.mount_points = {"/",           "/s",          "/s/mounted",         "/s/below/a b/c",
                                   "/s/exempt/x", "/s/near-not", "/s/snap/#snapshot/1"};
  Write(
      "INSERT INTO rotate_setting_table SELECT view_id, 5, 'smart' FROM user_table WHERE view_id IN (2, 3);"
      "INSERT INTO session_table (uid, sess_id) SELECT id, 's' FROM user_table WHERE view_id = 3;"
      "INSERT INTO backup_task_table (session) VALUES ('s');");
  ExpectRemoved({3, 4, 5, 9, 10});
  EXPECT_EQ(Read("SELECT name, watch_path FROM user_table ORDER BY id"),
            "plain|/s/plain,@kept|/s/kept,@moved|/s/moved,@exempt|/s/exempt,@snap|/s/snap,@near|/s/near,"
            "@primary|/s/primary");
  EXPECT_EQ(Read("SELECT view_id FROM rotate_setting_table"), "0,2");
  EXPECT_EQ(SessionsAndTasks(), "s s") << "a share user's stay";
  EXPECT_EQ(sink_.Count("[WARNING] user-mgr(N): UserManager::EnumShareUser: skipping share user 'plain'\n"),
            1);
}

TEST_F(SelfCheck, AMachineThatCannotAnswerRemovesNobody) {
  AddUsers("(1, 0, '@music', 0, 0, 1, '/s/music')");
  machine_.shares.failing = {"music"};
  ExpectFailure(
      {"UserManager::CheckShareUser fail to look up share 'music'\n", "Failed to CheckShareUser music\n"});
  machine_.shares.failing.clear();
  AddShare("music", "/s/music");
  machine_.volumes.failing_calls = {"ListMountPoints"};
  ExpectFailure(
      {"UserManager::SelfCheck fail to read the mount points\n", "Failed to CheckShareUser music\n"});
  Write("UPDATE user_table SET name = 'bob', uid = 7, user_type = 0");
  accounts_.failing = {7};
  ExpectFailure({"UserManager::CheckNormalUser fail to look up the account of uid 7\n",
                 "Failed to CheckLocalUser bob\n"});
  EXPECT_EQ(Users(), "bob|1|0|0|/s/music");
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

TEST_F(SelfCheck, LongNamesAndPathsTouchNobodyElse) {
  const std::string name(389, 'n');
  const std::string fits(950, 'f');
  const std::string longer(1000, 'r');
  AddUsers("(1, 0, 'ann', 1, 100, 0, ''), (2, 0, '" + name +
           "', 2, 100, 0, '/n'), (3, 0, '@art', 0, 0, 1, 'a')");
  AddUsers("(4, 0, '@music', 0, 0, 1, 'm'), (5, 0, '@photo', 0, 0, 1, 'p')");
  Write("INSERT INTO session_table (uid, sess_id) SELECT id, 's' || id FROM user_table;");
  const std::string before = Users();
  accounts_.Add("ann", 1);
  AddShare("art", "a");
  AddShare("music", longer);
  AddShare("photo", "p");
  ExpectFailure({"statement of 1453 bytes does not fit its buffer of 1024 bytes\n",
                 "UserManager::CheckNormalUser fail to RemoveUserNoTransaction " + name + "\n",
                 "Failed to CheckLocalUser " + name + "\n"});
  accounts_.Add("short", 2);  // renamed: this statement has the name twice, and just fits
  ExpectFailure({"statement of 1057 bytes does not fit its buffer of 1024 bytes\n",
                 "UserManager::CheckShareUser fail to update watch path " + longer + " to share 'music'.\n",
                 "Failed to CheckShareUser music\n"});
  EXPECT_EQ(Users(), before);
  machine_.shares.shares[1].path = fits;
  machine_.services.user_home = false;
  ExpectRemoved({});
  EXPECT_EQ(Users(), "ann|1|0|100|,short|2|0|100|,@art|3|0|0|a,@music|4|0|0|" + fits + ",@photo|5|0|0|p");
  EXPECT_EQ(SessionsAndTasks(), "s1,s3,s4,s5 ");
}

TEST_F(SelfCheck, EveryRefusedWriteHasItsOwnLine) {
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
  ExpectRefusal("DELETE ON user_table",
                {"UserManager::RemoveShareUser fail to remove share user 's'\n",
                 "UserManager::CheckShareUser fail to RemoveShareUser s\n", "Failed to CheckShareUser s\n"});
  Write("ALTER TABLE user_table RENAME TO gone;");
  ExpectFailure({"UserManager::EnumUser: sqlite3_prepare_v2(1): no such table: user_table\n",
                 "Failed to enumerate users\n"});
}

}  // namespace
}  // namespace user_mgr
