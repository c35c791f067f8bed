#include <set>

#include "user-mgr/user_manager_fixture.h"

namespace user_mgr {
namespace {

class Operations : public UserManagerFixture {
 protected:
  void SetUp() override {
    UserManagerFixture::SetUp();
    ASSERT_EQ(UserManager::Initialize(File()), 0);
    Write(
        "INSERT INTO user_table (id, view_id, attribute, name, uid, gid, user_type, watch_path) VALUES"
        "(1, 11, 0, 'alice', 1001, 101, 0, '/h/alice'), (2, 12, 8, '@music', 0, 0, 1, '/s/music'),"
        "(3, 13, 1, 'dora', 2001, 201, 2, '/h/dora'), (4, 14, 0, 'EX\\bob', 3001, 301, 3, '/h/ex'),"
        "(5, 15, 4, '@alpha', 0, 0, 1, '/s/alpha'), (6, 16, 0, 'bob', 1002, 102, 0, '/h/bob');"
        "UPDATE config_table SET value = '20' WHERE key = 'view_id';"
        "INSERT INTO session_table (uid, sess_id, client, ip, group_id, ctime, client_type) VALUES"
        "(1, 's1', 'c1', 'ip6', 1, 101, 1), (2, 's2', 'c2', 'ip5', 1, 102, 2), (3, 's3', 'c3', 'ip4', 1, 103, 3),"
        "(4, 's4', 'c4', 'ip3', 1, 104, 4), (6, 's6', 'c6', 'ip2', 1, 105, 5), (1, 's7', 'c7', 'ip1', 1, 106, 6),"
        "(NULL, 's9', 'c9', '', 1, 107, 7);"
        "INSERT INTO backup_task_table (session, view_id, relative_path, is_readonly)"
        "SELECT sess_id, uid + 10, '/' || client, 0 FROM session_table;");
  }

  std::string Names() const { return Read("SELECT name FROM user_table ORDER BY id"); }
  std::string Attributes() const { return Read("SELECT attribute FROM user_table ORDER BY id"); }
  std::string Sessions() const { return Read("SELECT sess_id FROM session_table ORDER BY rowid"); }
  std::string Tasks() const { return Read("SELECT session FROM backup_task_table ORDER BY rowid"); }

  static std::string Join(const UserList& users) {
    std::string line;
    for (const UserRecord& user : users) line += user.name + ",";
    return line;
  }
  static std::string Join(const std::list<SessionRecord>& sessions) {
    std::string line;
    for (const SessionRecord& session : sessions) line += session.sess_id + ",";
    return line;
  }
};

constexpr char kAllNames[] = "alice,@music,dora,EX\\bob,@alpha,bob";
constexpr char kAllSessions[] = "s1,s2,s3,s4,s6,s7,s9";

TEST_F(Operations, AddUserHandsOutTheNextViewIdOnlyToANewUser) {
  const UserRecord quoted = {"o'neil 100%s", 0, 0, 3, 4000000000U, 77, UserType::kNormal, "/h/o'neil %d"};
  UserRecord share = quoted;
  share.name = "photo";
  share.user_type = UserType::kShare;
  ASSERT_EQ(UserManager::AddUser(quoted), 0);
  ASSERT_EQ(UserManager::AddUser({"ALICE", 0, 0, 0, 5, 5, UserType::kNormal, ""}), 0);
  ASSERT_EQ(UserManager::AddUser(share), 0);
  EXPECT_EQ(
      Read("SELECT name, view_id, attribute, uid, gid, user_type, watch_path FROM user_table WHERE id > 6"),
      "o'neil 100%s|20|3|4000000000|77|0|/h/o'neil %d,@photo|21|3|4000000000|77|1|/h/o'neil %d");
  EXPECT_EQ(Read("SELECT value FROM config_table"), "4150,master,22");

  UserRecord user;
  ASSERT_EQ(UserManager::GetUser("O'Neil 100%s", user), 0);
  EXPECT_EQ(user.uid, 4000000000U);
  EXPECT_EQ(user.watch_path, "/h/o'neil %d");
}

TEST_F(Operations, RemovingUsersTakesTheirSessionsAndTasks) {
  ASSERT_EQ(UserManager::RemoveUser("alice"), 0);
  EXPECT_EQ(Names(), "@music,dora,EX\\bob,@alpha,bob");
  EXPECT_EQ(Sessions(), "s2,s3,s4,s6,s9");
  EXPECT_EQ(Tasks(), "s2,s3,s4,s6,s9");
  ASSERT_EQ(UserManager::DeleteUserByUserType(UserType::kDomain), 0);
  EXPECT_EQ(Names(), "@music,dora,@alpha,bob");
  EXPECT_EQ(Sessions(), "s2,s3,s6,s9");
  EXPECT_EQ(Tasks(), "s2,s3,s6,s9");
  // By its stored name, a share user keeps its row, but not its sessions.
  ASSERT_EQ(UserManager::RemoveUser("@music"), 0);
  EXPECT_EQ(Names(), "@music,dora,@alpha,bob");
  EXPECT_EQ(Sessions(), "s3,s6,s9");
}

TEST_F(Operations, RemoveShareUserTakesItsRotationSettingAndNoSession) {
  ASSERT_EQ(UserManager::SetRotateSetting({{12, 1, "a"}, {15, 2, "b"}, {16, 3, "it's"}}), 0);
  ASSERT_EQ(UserManager::RemoveShareUser("music"), 0);
  ASSERT_EQ(UserManager::RemoveShareUser("bob"), 0);  // no share
  EXPECT_EQ(Names(), "alice,dora,EX\\bob,@alpha,bob");
  EXPECT_EQ(Read("SELECT * FROM rotate_setting_table"), "0|32|fifo,15|2|b,16|3|it's");
  EXPECT_EQ(Sessions(), kAllSessions);
  EXPECT_EQ(Tasks(), kAllSessions);
}

TEST_F(Operations, RenameAndAttributesTouchOneUser) {
  ASSERT_EQ(UserManager::RenameUser("bob", "rob"), 0);
  EXPECT_EQ(Names(), "alice,@music,dora,EX\\bob,@alpha,rob");
  EXPECT_EQ(UserManager::RenameUser("rob", "Alice"), -1);
  EXPECT_EQ(
      sink_.Count("[ERROR] user-mgr(N): UserManager::RenameUser fail to rename user 'rob' to 'Alice'\n"), 1);

  ASSERT_EQ(UserManager::DisableUser("@alpha", 9), 0);
  EXPECT_EQ(Attributes(), "0,8,1,0,13,0");
  ASSERT_EQ(UserManager::EnableUser("@alpha", 5), 0);
  EXPECT_EQ(Attributes(), "0,8,1,0,8,0");
  ASSERT_EQ(UserManager::DisableUser("alice", 1, UserType::kLdap, UserType::kDomain), 0);
  ASSERT_EQ(UserManager::EnableUser("dora", 1, UserType::kNormal, UserType::kDomain), 0);
  EXPECT_EQ(Attributes(), "0,8,1,0,8,0");
  ASSERT_EQ(UserManager::DisableUser("alice", 1, UserType::kLdap, UserType::kNormal), 0);
  ASSERT_EQ(UserManager::DisableUser("alice", 2, UserType::kNormal, UserType::kLdap), 0);
  ASSERT_EQ(UserManager::EnableUser("dora", 1, UserType::kLdap, UserType::kDomain), 0);
  ASSERT_EQ(UserManager::EnableUser("@alpha", 8, UserType::kLdap, UserType::kShare), 0);
  ASSERT_EQ(UserManager::SetUserAttribute("rob", 42), 0);
  EXPECT_EQ(Attributes(), "3,8,0,0,0,42");
}

TEST_F(Operations, QueriesFindTheRightUsers) {
  UserRecord user;
  ASSERT_EQ(UserManager::GetUserByViewId(15, user), 0);
  EXPECT_EQ(user.name, "alpha");
  EXPECT_EQ(user.id, 5U);
  EXPECT_EQ(user.attribute, 4);
  ASSERT_EQ(UserManager::GetUser("dora", user), 0);
  EXPECT_EQ(user.view_id, 13U);
  EXPECT_EQ(user.uid, 2001U);
  EXPECT_EQ(user.gid, 201U);
  EXPECT_EQ(user.user_type, UserType::kLdap);
  EXPECT_EQ(UserManager::GetUser("@alpha", user), -1);
  EXPECT_EQ(UserManager::GetShareUser("dora", user), -1);
  EXPECT_EQ(UserManager::GetUserByViewId(1, user), -1);
  EXPECT_EQ(sink_.Count("[INFO] user-mgr(N): UserManager::GetUserByViewId: there is no user of view '1'\n"),
            1);
  EXPECT_EQ(user.name, "dora");
  ASSERT_EQ(UserManager::GetShareUser("music", user), 0);
  EXPECT_EQ(user.watch_path, "/s/music");

  UserList users;
  ASSERT_EQ(UserManager::EnumShareUser(false, users), 0);
  EXPECT_EQ(Join(users), "music,alpha,");
  ASSERT_EQ(UserManager::EnumShareUser(true, users), 0);
  EXPECT_EQ(Join(users), "alpha,music,");
  ASSERT_EQ(UserManager::EnumUserByType(UserType::kNormal, users), 0);
  EXPECT_EQ(Join(users), "alice,bob,");

  int count = 0;
  ASSERT_EQ(UserManager::CountEnabledUser(UserType::kShare, count), 0);
  EXPECT_EQ(count, 1);
  ASSERT_EQ(UserManager::CountEnabledUserExcept(UserType::kShare, count), 0);
  EXPECT_EQ(count, 3);
}

TEST_F(Operations, RowsThatAreNoUsersBecomeNobodyElse) {
  Write(
      "INSERT INTO user_table (view_id, attribute, name, uid, gid, user_type, watch_path) VALUES"
      "(31, 0, 'plain', 0, 0, 1, ''), (32, 0, NULL, 0, 0, 1, ''), (33, 0, NULL, 4294968296, -2, 0, ''),"
      "(34, 0, 'far', 1, 1, 4294967296, ''), (35, 0, 'text', 1, 1, 'x', ''), (36, NULL, '@odd', 1, 1, 7, '');");
  UserList users;
  ASSERT_EQ(UserManager::EnumAllUser(users), 0);
  EXPECT_EQ(Join(users), "alice,music,dora,EX\\bob,alpha,bob,,far,text,@odd,");
  const std::string head = "[WARNING] user-mgr(N): UserManager::EnumShareUser: skipping share user '";
  EXPECT_EQ(sink_.Texts(), (std::vector<std::string>{head + "plain'\n", head + "(unknown)'\n"}));
  const UserRecord& nameless = *std::next(users.begin(), 6);
  EXPECT_EQ(nameless.uid, 4294967295U);
  EXPECT_EQ(nameless.gid, 4294967294U);
  EXPECT_EQ(std::next(users.begin(), 7)->user_type, static_cast<UserType>(-1));
  EXPECT_EQ(std::next(users.begin(), 8)->user_type, static_cast<UserType>(-1));

  Write("ALTER TABLE user_table RENAME TO gone;");
  EXPECT_EQ(UserManager::EnumAllUser(users), -1);  // notices while it runs
  EXPECT_EQ(UserManager::EnumAllUser(users), -1);  // knows beforehand
  EXPECT_EQ(users.size(), 10U);
  for (const char* call : {"sqlite3_step", "sqlite3_prepare_v2"}) {
    EXPECT_EQ(sink_.Count(std::string("[ERROR] user-mgr(N): UserManager::EnumUser: ") + call +
                          "(1): no such table: user_table\n"),
              1);
  }
}

TEST_F(Operations, SessionsAreMadeReadAndPaged) {
  ASSERT_EQ(UserManager::CreateSession("bob", {"n'1", "PC %s", 5, "win"}, "::1"), 0);
  EXPECT_EQ(UserManager::CreateSession("bob", {"s1", "", 0, ""}, ""), -1);
  EXPECT_EQ(sink_.Count("[ERROR] user-mgr(N): UserManager::CreateSession fail to create session s1\n"), 1);
  EXPECT_EQ(
      Read(
          "SELECT uid, attribute, group_id, client, ip, sess_id, client_type, client_platform, "
          "abs(ctime - strftime('%s', 'now')) < 100, typeof(ctime) FROM session_table WHERE sess_id = 'n''1'"),
      "6|0|1|PC %s|::1|n'1|5|win|1|integer");

  SessionRecord session;
  ASSERT_EQ(UserManager::GetSession("s3", session), 0);
  EXPECT_EQ(session.view_id, 13U);
  EXPECT_EQ(session.name, "dora");
  EXPECT_EQ(session.attribute, 1);
  EXPECT_EQ(session.ctime, 103);
  EXPECT_EQ(session.client + session.ip + session.sess_id, "c3ip4s3");
  EXPECT_EQ(session.group_id, 1);
  EXPECT_EQ(session.uid, 2001U);
  EXPECT_EQ(session.gid, 201U);
  EXPECT_EQ(session.user_type, UserType::kLdap);
  EXPECT_EQ(session.watch_path, "/h/dora");
  EXPECT_EQ(session.client_type, 3);
  EXPECT_EQ(session.client_platform, "Unknown");
  EXPECT_EQ(UserManager::GetSession("s9", session), -1);
  EXPECT_EQ(sink_.Count("[INFO] user-mgr(N): UserManager::GetSession:: cannot file record for session s9\n"),
            1);

  std::list<SessionRecord> sessions;
  ASSERT_EQ(UserManager::EnumSession({SessionOrder::kIp, Direction::kAscending, 3, 2}, sessions), 0);
  EXPECT_EQ(Join(sessions), "s6,s4,s3,");
  ASSERT_EQ(UserManager::EnumSession({SessionOrder::kCreationTime, Direction::kDescending, 3, 1}, sessions),
            0);
  EXPECT_EQ(Join(sessions), "s7,s6,s4,");
  ASSERT_EQ(UserManager::EnumSession("alice", {SessionOrder::kIp, Direction::kAscending, 9, 0}, sessions), 0);
  EXPECT_EQ(Join(sessions), "s7,s1,");
  int count = 0;
  ASSERT_EQ(UserManager::CountSession(count), 0);
  EXPECT_EQ(count, 8);
  ASSERT_EQ(UserManager::CountSession("alice", count), 0);
  EXPECT_EQ(count, 2);
}

TEST_F(Operations, SessionsChangeAndGoOneByOne) {
  ASSERT_EQ(UserManager::UpdateClient("s3", {"new'3", "phone", 9, "ios"}), 0);
  EXPECT_EQ(Read("SELECT client, client_type, client_platform FROM session_table WHERE sess_id = 'new''3'"),
            "phone|9|ios");
  EXPECT_EQ(Tasks(), "s1,s2,new'3,s4,s6,s7,s9");
  EXPECT_EQ(UserManager::UpdateClient("s4", {"s1", "c4", 0, ""}),
            -1);                                      // taken: rolled back, and no transaction
  ASSERT_EQ(UserManager::RemoveSession("new'3"), 0);  // stays open behind it
  EXPECT_EQ(Sessions(), "s1,s2,s4,s6,s7,s9");
  EXPECT_EQ(Tasks(), "s1,s2,s4,s6,s7,s9");
  ASSERT_EQ(UserManager::UpdateClientType("s2", 77), 0);
  EXPECT_EQ(Read("SELECT client_type FROM session_table ORDER BY rowid"), "1,77,4,5,6,7");
  ASSERT_EQ(UserManager::ClearSession(), 0);
  EXPECT_EQ(Sessions() + Tasks(), "");
  EXPECT_EQ(Names(), kAllNames);
}

TEST_F(Operations, BackupTasksBelongToTheirSession) {
  const std::string path(2000, '\'');  // longer than the statement buffer: these have no bound
  ASSERT_EQ(UserManager::SetBackupTask("s1", {{12, "", path, 1}, {13, "", "/b", 0}}), 0);
  std::list<BackupTask> tasks;
  ASSERT_EQ(UserManager::EnumBackupTask("s1", tasks), 0);
  ASSERT_EQ(tasks.size(), 2U);
  EXPECT_EQ(tasks.front().view_id, 12U);
  EXPECT_EQ(tasks.front().session, "s1");
  EXPECT_EQ(tasks.front().relative_path, path);
  EXPECT_EQ(tasks.front().is_readonly, 1);
  ASSERT_EQ(UserManager::EnumBackupTask(tasks), 0);
  EXPECT_EQ(tasks.size(), 8U);
  std::list<std::string> paths;
  ASSERT_EQ(UserManager::EnumConflictPath("s1", 12, paths), 0);
  EXPECT_EQ(paths, std::list<std::string>{"/c2"});
  ASSERT_EQ(UserManager::EnumConflictPath("", 12, paths), 0);
  EXPECT_EQ(paths, (std::list<std::string>{"/c2", path}));
  ASSERT_EQ(UserManager::SetBackupTask("s1", {}), 0);
  EXPECT_EQ(Tasks(), "s2,s3,s4,s6,s7,s9");
}

TEST_F(Operations, RotationSettingsAreReplacedByView) {
  ASSERT_EQ(UserManager::SetRotateSetting({}), 0);
  ASSERT_EQ(UserManager::SetRotateSetting({{7, 1, "fifo"}, {8, 2, "smart"}}), 0);
  ASSERT_EQ(UserManager::SetRotateSetting({{7, 9, "it's"}}), 0);
  EXPECT_EQ(Read("SELECT * FROM rotate_setting_table"), "0|32|fifo,7|9|it's,8|2|smart");
  RotateSetting setting;
  ASSERT_EQ(UserManager::GetRotateSetting(8, setting), 0);
  EXPECT_EQ(setting.rotate_cnt, 2);
  EXPECT_EQ(setting.rotate_policy, "smart");
  EXPECT_EQ(UserManager::GetRotateSetting(9, setting), -1);
  EXPECT_EQ(sink_.Count("[INFO] user-mgr(N): UserManager::GetRotateSetting: view 9 has no setting\n"), 1);
  EXPECT_EQ(setting.view_id, 8U);
}

TEST_F(Operations, ProfilesAreCommittedTogether) {
  const std::string context = "{\"a\":\"" + std::string(2000, '\'') + "\"}";
  ProfileChanges changes;
  changes.added = {{0, "two", context, 0}, {0, "three", "{}", 0}, {0, "four", "{}", 0}};
  changes.applied = {{2, {1001, 1002}}, {3, {1001}}, {4, {2001}}};
  changes.views = {{11, 2}, {12, 1}};
  ASSERT_EQ(UserManager::CommitProfile(changes), 0);
  changes = {};
  changes.modified = {{2, "2nd", context, 0}};
  changes.removed = {3};
  changes.applied = {{2, {2001}}};
  changes.views = {{12, 64}};
  ASSERT_EQ(UserManager::CommitProfile(changes), 0);
  EXPECT_EQ(Read("SELECT id, name, length(context), attribute FROM profile_table"),
            "1|internal for enc share|32|7,2|2nd|2008|0,4|four|2|0");
  EXPECT_EQ(Read("SELECT profile_id, user_id FROM profile_apply_table"), "4|2001,2|2001");
  EXPECT_EQ(Read("SELECT profile_id, view_id FROM profile_apply_view_table"), "1|11");

  std::list<Profile> profiles;
  ASSERT_EQ(UserManager::EnumProfile(profiles), 0);
  ASSERT_EQ(profiles.size(), 3U);
  EXPECT_EQ(std::next(profiles.begin())->name, "2nd");
  EXPECT_EQ(std::next(profiles.begin())->context, context);
  EXPECT_EQ(profiles.front().attribute, 7);
  std::list<ProfileApply> applied;
  ASSERT_EQ(UserManager::EnumProfileApply(applied), 0);
  ASSERT_EQ(applied.size(), 2U);
  EXPECT_EQ(applied.front().user_id, 2001U);
  EXPECT_EQ(applied.front().profile_id, 4U);

  std::list<UserProfile> users;
  ASSERT_EQ(UserManager::CollectUserData(users), 0);
  std::set<std::string> lines;
  for (const UserProfile& entry : users) lines.insert(entry.user.name + std::to_string(entry.profile_id));
  EXPECT_EQ(lines, (std::set<std::string>{"dora2", "dora4", "alice1"}));
  EXPECT_EQ(users.back().user.name, "alice") << "those of views come last";

  Write("CREATE TRIGGER t BEFORE DELETE ON profile_apply_table BEGIN SELECT raise(ABORT, 'no'); END;");
  changes = {};
  changes.removed = {2};
  EXPECT_EQ(UserManager::CommitProfile(changes), -1);
  EXPECT_EQ(Read("SELECT count(*) FROM profile_table"), "3");
  EXPECT_EQ(UserManager::BeginTransaction(), 0);  // nothing was left open
}

TEST_F(Operations, AStatementThatDoesNotFitIsNotExecuted) {
  const std::string name(389, 'n');
  const std::string path(1000, 'p');
  ASSERT_EQ(UserManager::AddUser({name, 0, 0, 0, 1, 1, UserType::kNormal, "/n"}), 0);
  ASSERT_EQ(UserManager::CreateSession(name, {"long", "", 0, ""}, ""), 0);
  EXPECT_EQ(UserManager::RemoveUser(name), -1);
  EXPECT_EQ(sink_.Count("[ERROR] user-mgr(N): UserManager::RemoveUser fail to remove user '" + name + "'\n"),
            1);
  EXPECT_EQ(UserManager::RemoveShareUser(path), -1);
  EXPECT_EQ(UserManager::AddUser({"new", 0, 0, 0, 1, 1, UserType::kNormal, path}), -1);
  EXPECT_EQ(UserManager::RemoveSession(path), -1);
  EXPECT_EQ(UserManager::RenameUser(path, "x"), -1);
  EXPECT_EQ(UserManager::SetUserAttribute(path, 1), -1);
  UserRecord user;
  EXPECT_EQ(UserManager::GetUser(path, user), -1);
  int count = 0;
  EXPECT_EQ(UserManager::CountSession(path, count), -1);
  EXPECT_EQ(Names(), std::string(kAllNames) + "," + name);
  EXPECT_EQ(Sessions(), std::string(kAllSessions) + ",long");
  EXPECT_EQ(Attributes(), "0,8,1,0,4,0,0");
}

// The buffer's last byte ends the text.
TEST_F(Operations, TheStatementBufferHolds1023Bytes) {
  constexpr std::size_t kAround = sizeof("UPDATE user_table SET name = '' WHERE name = 'bob';") - 1;
  EXPECT_EQ(UserManager::RenameUser("bob", std::string(1024 - kAround, 'n')), -1);
  EXPECT_EQ(Names(), kAllNames);
  EXPECT_EQ(UserManager::RenameUser("bob", std::string(1023 - kAround, 'n')), 0);
  EXPECT_EQ(Read("SELECT id FROM user_table WHERE length(name) > 900"), "6");
}

}  // namespace
}  // namespace user_mgr
